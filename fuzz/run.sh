#!/usr/bin/env bash
# Runs each fuzz target for SECONDS, starting from its committed corpus, and fails on the first
# crash, sanitizer report or timeout. New inputs go to WORKDIR, never into fuzz/corpus.
#
#   fuzz/run.sh SECONDS [WORKDIR] [TARGET...]      (targets: compile disasm names; default all)
#
# The library keeps every unit, every record and every grown table block for the life of the
# process by design, so a fuzzing process grows by tens of MB a second: the targets run in
# libFuzzer's fork mode, whose short-lived children keep that growth bounded. Leak checking is
# off here for the same reason; the sanitizer test preset checks leaks with its suppressions.
# FUZZ_EXTRA_FLAGS adds libFuzzer flags (e.g. -ignore_crashes=1 to go on past a finding).
set -euo pipefail

root="$(cd "$(dirname "$0")/.." && pwd)"
seconds="${1:?usage: fuzz/run.sh SECONDS [WORKDIR] [TARGET...]}"
work="${2:-$(mktemp -d /tmp/veltjs-fuzz.XXXXXX)}"
shift $(( $# >= 2 ? 2 : 1 ))
targets=("$@")
[ "${#targets[@]}" -gt 0 ] || targets=(compile disasm names)
build="${FUZZ_BUILD_DIR:-$root/build/fuzz/fuzz}"

export ASAN_OPTIONS="detect_leaks=0:abort_on_error=1:${ASAN_OPTIONS:-}"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1:${UBSAN_OPTIONS:-}"

status=0
for target in "${targets[@]}"; do
  mkdir -p "$work/$target-corpus" "$work/$target-artifacts"
  dict=()
  [ "$target" = disasm ] || dict=(-dict="$root/fuzz/veltjs.dict")
  echo "fuzz_$target: $seconds s, log $work/$target.log"
  # -close_fd_mask=1: the library's tree dumps go to standard output; keep only standard error.
  if ! "$build/fuzz_$target" -fork=1 -ignore_crashes=0 -max_total_time="$seconds" -timeout=10 \
        -rss_limit_mb=2048 -close_fd_mask=1 -print_final_stats=1 "${dict[@]}" ${FUZZ_EXTRA_FLAGS:-} \
        -artifact_prefix="$work/$target-artifacts/" \
        "$work/$target-corpus" "$root/fuzz/corpus/$target" > "$work/$target.log" 2>&1; then
    echo "fuzz_$target FAILED; see $work/$target.log and $work/$target-artifacts/" >&2
    tail -40 "$work/$target.log" >&2
    status=1
  fi
  # A fork-mode job keeps every unit it compiled, so a long job can outgrow the memory limit on
  # its own; libFuzzer then saves the input it was running. Each such input is run again alone:
  # if it stays within the limit it found nothing and is set aside, else it stays a finding.
  for oom in "$work/$target-artifacts"/oom-*; do
    [ -e "$oom" ] || continue
    if "$build/fuzz_$target" -rss_limit_mb=2048 -close_fd_mask=1 "$oom" > /dev/null 2>&1; then
      mkdir -p "$work/$target-job-memory"
      mv "$oom" "$work/$target-job-memory/"
    fi
  done
  if compgen -G "$work/$target-job-memory/*" > /dev/null; then
    echo "fuzz_$target: $(ls "$work/$target-job-memory" | wc -l) jobs outgrew the memory limit; each input alone stays within it"
  fi
  if compgen -G "$work/$target-artifacts/*" > /dev/null; then
    echo "fuzz_$target left inputs in $work/$target-artifacts/" >&2
    ls "$work/$target-artifacts/" >&2
    status=1
  fi
  grep -E "^#[0-9]+: cov:|DONE|stat::" "$work/$target.log" | tail -3 || true
done
exit $status
