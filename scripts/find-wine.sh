# Sourced by the scripts that run the Windows build: sets `wine` to wine64 as Debian installs it
# (outside PATH), else whatever wine is on PATH, unless VELTJS_WINE names one; exits with status 2
# when there is none. Quiets wine's own messages.
#
#   . scripts/find-wine.sh CALLER_NAME
wine="${VELTJS_WINE:-}"
if [ -z "$wine" ]; then
  for candidate in /usr/lib/wine/wine64 wine64 wine; do
    if command -v "$candidate" > /dev/null; then
      wine="$candidate"
      break
    fi
  done
fi
[ -n "$wine" ] || { echo "$1: no wine found (set VELTJS_WINE)" >&2; exit 2; }
export WINEDEBUG=-all
