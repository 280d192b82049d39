#!/bin/sh
# Fuzzes every target, one process at a time and nicely.
#
#   run.sh SECONDS   for so long each (60 without an argument). An input that fails is kept in the target's corpus: fix
#                    the cause and commit the input.
#   run.sh replay    runs every input of the corpora once, without fuzzing
#
# BUILD: folder of the asan preset's build; build-asan without it.
set -u
here=$(cd "$(dirname "$0")" && pwd)
build=${BUILD:-$here/../../build-asan}
targets="fuzz_request fuzz_notify"

replay() {
  passed=0
  failed=0
  for target in $targets; do
    # It ends at the first input that fails, with its report.
    output=$("$build/bin/$target" -timeout=20 "$here/corpus/$target"/* 2>&1) || {
      failed=$((failed + 1))
      printf '%s\n' "$output" | tail -60
    }
    passed=$((passed + $(printf '%s\n' "$output" | grep -c '^Executed ')))
  done
  echo "$passed passed, $failed failed"
  [ "$failed" -eq 0 ]
}

fuzz() {
  result=0
  for target in $targets; do
    # What is found on the way stays in the build; only what fails goes into the project.
    found=$build/corpus/$target
    mkdir -p "$found"
    echo "== $target, $1 s"
    nice -n 10 "$build/bin/$target" -max_total_time="$1" -timeout=20 -report_slow_units=20 -rss_limit_mb=1500 -max_len=1024 \
      -print_final_stats=1 -artifact_prefix="$here/corpus/$target/" \
      "$found" "$here/corpus/$target" 2>"$build/$target.log" || result=1
    # The summary, or the report of what failed; not the progress.
    grep -v -E '^#[0-9]+|NEW_FUNC|^INFO|^"|#####' "$build/$target.log" | tail -60
    grep -E '^#[0-9]+' "$build/$target.log" | tail -1
  done
  return $result
}

case ${1:-60} in
  replay) replay ;;
  *[!0-9]*) echo "usage: run.sh [SECONDS | replay]" >&2; exit 2 ;;
  *) fuzz "${1:-60}" ;;
esac
