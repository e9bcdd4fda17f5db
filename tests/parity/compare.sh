#!/usr/bin/env bash
# Compiles a generated corpus with the Linux build and with the Windows build (under wine) and
# compares everything a host observes byte for byte: status, messages, code, positions, names,
# patch and function records, listings, and the library's own standard output.
#
#   tests/parity/compare.sh LINUX_BUILD_DIR WINDOWS_BUILD_DIR [WORKDIR] [COUNT]
#
# Each build directory must hold the library and its tests/veltjs_dump. The corpus is compiled
# twice in one process per platform: as top-level scripts with the runner's built-in functions
# declared, and as plain scripts without them, so the process-wide tables also grow alike.
set -euo pipefail

root="$(cd "$(dirname "$0")/../.." && pwd)"
linux="$(cd "${1:?usage: compare.sh LINUX_BUILD_DIR WINDOWS_BUILD_DIR [WORKDIR] [COUNT]}" && pwd)"
windows="$(cd "${2:?usage: compare.sh LINUX_BUILD_DIR WINDOWS_BUILD_DIR [WORKDIR] [COUNT]}" && pwd)"
work="${3:-$(mktemp -d /tmp/veltjs-parity.XXXXXX)}"
count="${4:-600}"
. "$root/scripts/find-wine.sh" compare.sh

mkdir -p "$work"
work="$(cd "$work" && pwd)"
rm -rf "$work/corpus"
python3 "$root/tests/parity/make_corpus.py" "$work/corpus" "$count"
scripts=$(wc -l < "$work/corpus/list.txt")

# Paths inside the corpus are relative, so both platforms print the same "=== N PATH" lines.
cd "$work/corpus"
status=0
for mode in top-level plain; do
  options=()
  [ "$mode" = plain ] || options=(--top-level --builtins builtins.txt)
  "$linux/tests/veltjs_dump" "$linux/libveltjs.so" "$work/linux-$mode.txt" "${options[@]}" @list.txt \
    > "$work/linux-$mode.stdout"
  "$wine" "$windows/tests/veltjs_dump.exe" "$windows/VeltJS.dll" "$work/windows-$mode.txt" "${options[@]}" @list.txt \
    > "$work/windows-$mode.stdout"
  for kind in txt stdout; do
    if cmp "$work/linux-$mode.$kind" "$work/windows-$mode.$kind"; then
      echo "same: $scripts scripts, $mode, $kind ($(wc -c < "$work/linux-$mode.$kind") bytes)"
    else
      echo "DIFFERENT: $mode, $kind; first differing lines:" >&2
      diff "$work/linux-$mode.$kind" "$work/windows-$mode.$kind" | head -20 >&2 || true
      status=1
    fi
  done
  # A comparison of two empty or truncated results would prove nothing.
  units=$(grep -c '^status ' "$work/linux-$mode.txt" || true)
  if [ "$units" -ne "$scripts" ]; then
    echo "the Linux dump holds $units units for $scripts scripts ($mode)" >&2
    status=1
  fi
done
failed=$(grep -c '^status [^0]' "$work/linux-top-level.txt" || true)
echo "top level: $((scripts - failed)) compiled, $failed failed with a message"
exit $status
