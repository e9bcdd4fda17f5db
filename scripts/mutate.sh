#!/usr/bin/env bash
# Single-point mutation check: changes one spot of the library at a time, rebuilds the linux
# preset, runs the tests and reports every mutant that no test noticed (a survivor). The source
# tree is restored after each mutant, and on exit or interruption.
#
#   scripts/mutate.sh [-R REGEX] [-E REGEX] [-s SEP] [-j N] MUTATION...
#
# Each MUTATION is either
#   FILE:LINE            every operator mutation of that line (see OPERATORS below), one at a time
#   FILE:FIRST-LAST      the same for each line of the range
#   FILE|FROM|TO         replace the only occurrence of the text FROM in FILE by TO (-s SEP
#                        takes another separator than '|', for texts that hold one, e.g. '||')
# -R REGEX limits the tests to those whose names match (ctest -R), which makes a run much faster
# when the tests that ought to notice are known; -E REGEX leaves out the tests whose names match
# (ctest -E), e.g. to see whether the other tests notice a mutant; -j N is passed to the build
# and to ctest.
# Exit status: 0 when every mutant was noticed, 1 when some survived, 2 on a usage or build error
# of the unmutated tree.
#
# Example: scripts/mutate.sh src/codegen/literals.cpp:92 'src/codegen/statements.cpp|label->depth = cx.continueTargets.count;|label->depth = cx.breakTargets.count;'
set -uo pipefail

root="$(cd "$(dirname "$0")/.." && pwd)"
cd "$root"
regex=""
exclude=""
separator="|"
jobs=2
while getopts "R:E:s:j:" option; do
  case "$option" in
    s) separator="$OPTARG" ;;
    R) regex="$OPTARG" ;;
    E) exclude="$OPTARG" ;;
    j) jobs="$OPTARG" ;;
    *) sed -n '2,23p' "$0"; exit 2 ;;
  esac
done
shift $((OPTIND - 1))
[ $# -gt 0 ] || { sed -n '2,23p' "$0"; exit 2; }

# Operator rewrites tried on a line, each at every place it occurs: FROM and TO separated by a tab.
OPERATORS=$(printf '%s\n' \
  '<=	<' '<	<=' '>=	>' '>	>=' '==	!=' '!=	==' '&&	||' '||	&&' \
  '+ 1	+ 0' '- 1	- 0' '+ 1	- 1' '- 1	+ 1' '++	--' '--	++' \
  ' 0;	 1;' ' 1;	 0;' 'true	false' 'false	true' '<< 	>> ' '>> 	<< ')

backup=""
restore() {
  if [ -n "$backup" ] && [ -f "$backup" ]; then
    cp "$backup" "$mutated_file"
    rm -f "$backup"
    backup=""
  fi
}
trap 'restore; exit 130' INT TERM
trap restore EXIT

build() { cmake --build --preset linux -j"$jobs" > /tmp/veltjs-mutate-build.log 2>&1; }
run_tests() {
  local filters=()
  [ -z "$regex" ] || filters+=(-R "$regex")
  [ -z "$exclude" ] || filters+=(-E "$exclude")
  ctest --preset linux -j"$jobs" "${filters[@]}" > /tmp/veltjs-mutate-test.log 2>&1
}

cmake --preset linux > /dev/null || exit 2
if ! build; then echo "the unmutated tree does not build" >&2; exit 2; fi
if ! run_tests; then echo "the unmutated tree fails its tests; see /tmp/veltjs-mutate-test.log" >&2; exit 2; fi

# The exact text edit: "replace FROM TO" (FROM must occur once in the file) or
# "line N FROM TO K" (the K-th occurrence of FROM on line N, counted from 0).
EDIT='
import sys
path, mode = sys.argv[1], sys.argv[2]
text = open(path).read()
if mode == "replace":
    source, target = sys.argv[3], sys.argv[4]
    if text.count(source) != 1:
        sys.exit("%s: %r occurs %d times, not once" % (path, source, text.count(source)))
    text = text.replace(source, target)
else:
    lines = text.split("\n")
    number, source, target, which = int(sys.argv[3]) - 1, sys.argv[4], sys.argv[5], int(sys.argv[6])
    line, at = lines[number], -1
    for _ in range(which + 1):
        at = line.find(source, at + 1)
    lines[number] = line[:at] + target + line[at + len(source):]
    text = "\n".join(lines)
open(path, "w").write(text)
'

total=0
survivors=0
# Applies one mutant, builds, tests, reports, restores.
try_mutant() {
  local file="$1" description="$2"
  shift 2
  mutated_file="$file"
  backup="$(mktemp)"
  cp "$file" "$backup"
  if ! python3 -c "$EDIT" "$file" "$@"; then
    restore
    return
  fi
  total=$((total + 1))
  local verdict
  if ! build; then
    verdict="killed (does not build)"
  elif run_tests; then
    verdict="SURVIVED"
    survivors=$((survivors + 1))
  else
    verdict="killed ($(grep -cE '^[[:space:]]+[0-9]+ - ' /tmp/veltjs-mutate-test.log) failing)"
  fi
  printf '%-28s %s\n' "$verdict" "$description"
  restore
}

for target in "$@"; do
  if [[ "$target" == *"$separator"* ]]; then
    file="${target%%"$separator"*}"
    rest="${target#*"$separator"}"
    from="${rest%%"$separator"*}"
    to="${rest#*"$separator"}"
    try_mutant "$file" "$file: '$from' -> '$to'" replace "$from" "$to"
    continue
  fi
  file="${target%%:*}"
  range="${target#*:}"
  first="${range%-*}"
  last="${range#*-}"
  for ((line = first; line <= last; line++)); do
    while IFS=$'\t' read -r from to; do
      [ -n "$from" ] || continue
      count=$(python3 -c 'import sys; print(open(sys.argv[1]).read().split("\n")[int(sys.argv[2]) - 1].count(sys.argv[3]))' "$file" "$line" "$from")
      for ((occurrence = 0; occurrence < count; occurrence++)); do
        try_mutant "$file" "$file:$line: '$from' -> '$to' (#$((occurrence + 1)))" line "$line" "$from" "$to" "$occurrence"
      done
    done <<< "$OPERATORS"
  done
done

# Leave the build as the restored tree is, not as the last mutant was.
build || echo "the restored tree did not build again; see /tmp/veltjs-mutate-build.log" >&2
echo "$total mutant(s), $survivors survived"
[ "$survivors" -eq 0 ]
