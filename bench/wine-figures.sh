#!/usr/bin/env bash
# Throughput and memory of the Windows build under wine beside the Linux build, on every shape of
# generated script, for information: wine adds its own costs (memory management above all), so
# these are not figures of Windows itself.
#
#   bench/wine-figures.sh [--sizes 1,4,16] [--runs 2] [--linux-build DIR] [--windows-build DIR]
#                         [--work DIR] [--no-project]
#
# Without --linux-build/--windows-build, configures and builds build/linux and build/windows with
# their presets; a directory given must already be configured (for example with
# `cmake --preset windows -B DIR`). Writes the shapes with veltjs_corpus (no project scripts),
# times each file with veltjs_time, one file per process since the library's tables are
# process-wide, keeps the best of the runs on each platform, and prints a markdown table.
# "Windows/Linux" is the Windows throughput over the Linux one; "bytes/byte" is the growth of the
# peak resident set (Linux) or peak working set (Windows) per byte of source. Then, unless
# --no-project, the project benchmark (compile_bench: 5,000 scripts in one process) on both.
set -euo pipefail

usage="usage: bench/wine-figures.sh [--sizes 1,4,16] [--runs 2] [--linux-build DIR] [--windows-build DIR] [--work DIR] [--no-project]"
sizes=1,4,16
runs=2
linux=
windows=
work=/tmp/veltjs-wine-figures
project=1
while [ $# -gt 0 ]; do
  case "$1" in
    --sizes) sizes="$2"; shift 2 ;;
    --runs) runs="$2"; shift 2 ;;
    --linux-build) linux="$2"; shift 2 ;;
    --windows-build) windows="$2"; shift 2 ;;
    --work) work="$2"; shift 2 ;;
    --no-project) project=0; shift ;;
    -h|--help) echo "$usage"; exit 0 ;;
    *) echo "$usage" >&2; exit 2 ;;
  esac
done
# Directories given are taken from where the script was started.
mkdir -p "$work"
work="$(cd "$work" && pwd)"
[ -z "$linux" ] || linux="$(cd "$linux" && pwd)"
[ -z "$windows" ] || windows="$(cd "$windows" && pwd)"
cd "$(dirname "$0")/.."

. scripts/find-wine.sh wine-figures.sh

targets=(veltjs_time compile_bench)
build() {  # PRESET DIR TARGETS...
  local preset="$1" dir="$2"
  shift 2
  if [ -z "$dir" ]; then
    cmake --preset "$preset" > /dev/null
    dir="build/$preset"
  fi
  if ! cmake --build "$dir" --target "$@" > "$work/build-$preset.log" 2>&1; then
    echo "wine-figures.sh: building $* in $dir failed (see $work/build-$preset.log)" >&2
    if grep -q "unknown target" "$work/build-$preset.log"; then
      echo "wine-figures.sh: $dir has no such targets: is bench/ part of that build?" >&2
    fi
    exit 1
  fi
}
build linux "$linux" "${targets[@]}" veltjs_corpus
build windows "$windows" "${targets[@]}"
linux="${linux:-$PWD/build/linux}"
windows="${windows:-$PWD/build/windows}"

corpus="$work/corpus"
rm -rf "$corpus"
"$linux/bench/veltjs_corpus" "$corpus" --sizes "$sizes" --project 0

# Best of the runs: "MB/s bytes/byte STATUS" of the fastest, or "fails" when a run printed no
# figures. A compile that ends with a message still prints them (STATUS 1); its message is kept.
best() {  # TAG COMMAND...
  local tag="$1" lines="" line status
  shift
  for _ in $(seq "$runs"); do
    status=0
    line="$("$@" 2> "$work/$tag.stderr" | tr -d '\r')" || status=$?
    [ -n "$line" ] || { echo fails; return; }
    lines+="$line $status"$'\n'
  done
  printf '%s' "$lines" | awk '{ print $(NF - 4), $(NF - 2), $NF }' | sort -g -r | head -1
}

# Relative names: both platforms open the same files from the corpus directory.
cd "$corpus"
"$wine" "$windows/bench/veltjs_time.exe" --help > /dev/null  # starts wine's server before any timing
notes=()
echo "| shape | size | Linux MB/s | Windows (wine) MB/s | Windows/Linux | Linux bytes/byte | Windows bytes/byte |"
echo "|---|---|---|---|---|---|---|"
while read -r path; do
  file="$(basename "$path")"
  shape="${file%-*mb.js}"
  size="${file##*-}"
  size="${size%mb.js}"
  read -r linux_rate linux_bytes linux_status <<< "$(best linux "$linux/bench/veltjs_time" "$file")"
  read -r windows_rate windows_bytes windows_status <<< "$(best windows "$wine" "$windows/bench/veltjs_time.exe" "$file")"
  for platform in linux windows; do
    status_var="${platform}_status"
    if [ "${!status_var:-0}" != 0 ]; then
      notes+=("$file ($platform): $(tr -d '\r' < "$work/$platform.stderr" | head -1)")
    fi
  done
  awk -v shape="$shape" -v size="$size" -v lr="$linux_rate" -v lb="${linux_bytes:-}" -v ls="${linux_status:-0}" \
      -v wr="$windows_rate" -v wb="${windows_bytes:-}" -v ws="${windows_status:-0}" '
    function rate(r, s) { return r == "fails" ? "fails" : sprintf("%.1f%s", r, s != 0 ? " (error)" : "") }
    function bytes(r, b) { return r == "fails" ? "-" : sprintf("%.1f", b) }
    BEGIN {
      ratio = (lr != "fails" && wr != "fails" && lr > 0) ? sprintf("%.2f", wr / lr) : "-"
      printf "| %s | %s MB | %s | %s | %s | %s | %s |\n", shape, size, rate(lr, ls), rate(wr, ws), ratio,
        bytes(lr, lb), bytes(wr, wb)
    }'
done < "$corpus/list.txt"
if [ ${#notes[@]} -gt 0 ]; then
  echo
  echo "(error): the compile ended with a message; the figures are those of the work done up to it."
  printf '%s\n' "${notes[@]}"
fi

[ "$project" = 1 ] || exit 0
echo
echo "Project (compile_bench, one process):"
for platform in Linux "Windows (wine)"; do
  if [ "$platform" = Linux ]; then
    output="$("$linux/bench/compile_bench" 2>&1 || true)"
  else
    output="$("$wine" "$windows/bench/compile_bench.exe" 2>&1 || true)"
  fi
  printf '%s\n' "$output" | tr -d '\r' | grep -E '^(scripts:|total:|first )' | sed "s/^/$platform: /"
done
