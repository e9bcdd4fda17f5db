#!/usr/bin/env bash
# Compiles every benchmark corpus with the library of an earlier commit and with the library of
# the working tree, and compares everything a host observes byte for byte: code, positions, names,
# patch records, function records, messages, listings and the library's standard output.
#
#   bench/compare-commits.sh OLD_COMMIT [--sizes 1,4,16] [--project 5000] [--jobs 2]
#
# Builds OLD_COMMIT's shared library in a temporary worktree, and this tree's library, dumper and
# corpus writer with the linux preset. Exit status 0 when every dump is identical. The old
# commits' builds and dumps are kept for the next comparison with them, the three used last only:
# the dumps of one commit take gigabytes.
set -euo pipefail
cd "$(dirname "$0")/.."

old="${1:?usage: bench/compare-commits.sh OLD_COMMIT [--sizes 1,4,16] [--project N] [--jobs N]}"
shift
sizes=1,4,16
project=5000
jobs=2
while [ $# -gt 0 ]; do
  case "$1" in
    --sizes) sizes="$2"; shift 2 ;;
    --project) project="$2"; shift 2 ;;
    --jobs) jobs="$2"; shift 2 ;;
    *) echo "unknown option $1" >&2; exit 2 ;;
  esac
done

work="${VELTJS_COMPARE_DIR:-/tmp/veltjs-compare}"
mkdir -p "$work"
old_sha="$(git rev-parse --verify "$old^{commit}")"

cmake --preset linux >/dev/null
cmake --build --preset linux --target veltjs veltjs_dump veltjs_corpus >/dev/null
# Copies, so that the working tree can be rebuilt while the comparison runs.
mkdir -p "$work/bin"
cp build/linux/libveltjs.so "$work/bin/libveltjs-new.so"
cp build/linux/tests/veltjs_dump "$work/bin/veltjs_dump"
new_lib="$work/bin/libveltjs-new.so"
dump="$work/bin/veltjs_dump"

old_tree="$work/tree-$old_sha"
if [ ! -f "$old_tree/build/linux/libveltjs.so" ]; then
  rm -rf "$old_tree"
  git worktree prune
  git worktree add --detach "$old_tree" "$old_sha" >/dev/null
  (cd "$old_tree" && cmake --preset linux >/dev/null && cmake --build --preset linux --target veltjs >/dev/null)
fi
old_lib="$old_tree/build/linux/libveltjs.so"

corpus="$work/corpus-$sizes-$project"
if [ ! -f "$corpus/list.txt" ]; then
  build/linux/bench/veltjs_corpus "$corpus" --sizes "$sizes" --project "$project"
fi

# One dump per shape file, and one for the whole project compiled in one process, as a host does.
grep -v '/project/' "$corpus/list.txt" > "$work/shapes.txt"
grep '/project/' "$corpus/list.txt" > "$work/project.txt" || true

run_one() {  # LIB TAG NAME SCRIPTS...
  local lib="$1" tag="$2" name="$3"
  shift 3
  "$dump" "$lib" "$work/$tag/$name.dump" "$@" > "$work/$tag/$name.stdout" 2> "$work/$tag/$name.stderr" || true
}
export -f run_one
export dump work

# The old commit's dumps of a corpus by one dumper never change, so they are made once and kept.
old_tag="old-$old_sha-$sizes-$project-$(sha1sum "$dump" | cut -c1-12)"
have_old=0
[ -f "$work/$old_tag/complete" ] && have_old=1
status=0
rm -rf "${work:?}/new"
mkdir -p "$work/new"
if [ $have_old = 0 ]; then
  rm -rf "${work:?}/$old_tag"
  mkdir -p "$work/$old_tag"
fi
start=$(date +%s)
{
  while read -r script; do
    name="$(basename "$script" .js)"
    [ $have_old = 1 ] || printf '%s\0%s\0%s\0%s\0' "$old_lib" "$old_tag" "$name" "$script"
    printf '%s\0%s\0%s\0%s\0' "$new_lib" new "$name" "$script"
  done < "$work/shapes.txt"
  if [ -s "$work/project.txt" ]; then
    [ $have_old = 1 ] || printf '%s\0%s\0%s\0%s\0' "$old_lib" "$old_tag" project "@$work/project.txt"
    printf '%s\0%s\0%s\0%s\0' "$new_lib" new project "@$work/project.txt"
  fi
} | xargs -0 -n 4 -P "$jobs" bash -c 'run_one "$@"' _
touch "$work/$old_tag/complete"
touch "$work/$old_tag" "$old_tree"

# Only the three old commits compared with last keep their dumps and builds.
kept=3
ls -dt "$work"/old-* 2>/dev/null | tail -n +$((kept + 1)) | while read -r stale; do rm -rf "$stale"; done
ls -dt "$work"/tree-* 2>/dev/null | tail -n +$((kept + 1)) | while read -r stale; do
  git worktree remove --force "$stale" 2>/dev/null || rm -rf "$stale"
done
git worktree prune

for file in "$work/$old_tag"/*; do
  name="$(basename "$file")"
  [ "$name" = complete ] && continue
  if cmp -s "$file" "$work/new/$name"; then
    printf 'same       %s (%s bytes)\n' "$name" "$(stat -c %s "$file")"
  else
    printf 'DIFFERENT  %s\n' "$name"
    status=1
  fi
done
echo "compared $old_sha with the working tree in $(( $(date +%s) - start )) s: $([ $status = 0 ] && echo identical || echo DIFFERENT)"
exit $status
