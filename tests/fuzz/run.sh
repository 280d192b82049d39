#!/bin/sh
# Fuzzes every target for SECONDS each (60 without an argument), one process at a time and nicely. An input that fails
# is kept in the target's corpus: fix the cause and commit the input.
# BUILD: folder of the asan preset's build; build-asan without it.
set -u
seconds=${1:-60}
here=$(cd "$(dirname "$0")" && pwd)
build=${BUILD:-$here/../../build-asan}
failed=0
for target in fuzz_request fuzz_notify; do
  # What is found on the way stays in the build; only what fails goes into the project.
  found=$build/corpus/$target
  mkdir -p "$found" "$here/corpus/$target"
  echo "== $target, $seconds s"
  nice -n 10 "$build/bin/$target" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=1500 -max_len=1024 \
    -print_final_stats=1 -verbosity=1 -artifact_prefix="$here/corpus/$target/" \
    "$found" "$here/corpus/$target" 2>"$build/$target.log" || failed=1
  # No figures of single inputs; the summary, or the report of what failed.
  grep -v -E '^#[0-9]+.*(NEW|REDUCE|pulse|RELOAD)|NEW_FUNC|^INFO' "$build/$target.log" | tail -60
  grep -E '^#[0-9]+' "$build/$target.log" | tail -1
done
exit $failed
