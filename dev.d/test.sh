# All of it: checks, and the tests in every build that finds other faults.
# shellcheck shell=bash disable=SC2154 # root, logs, demo and called_from are dev's

passed=0
failed=0

# Runs a preset's tests and adds up what CTest counted.
#   run_tests TEST_PRESET [BUILD_PRESET]
run_tests() {
  local preset=$1 log=$logs/test-$1.log
  build_preset "${2:-$preset}"
  say "testing ($preset)"
  local status=0
  ctest --preset "$preset" -j "$(nproc)" >"$log" 2>&1 || status=$?
  local total bad
  total=$(sed -nE 's/.* tests? failed out of ([0-9]+)$/\1/p' "$log" | tail -n 1)
  bad=$(sed -nE 's/.*, ([0-9]+) tests? failed out of .*/\1/p' "$log" | tail -n 1)
  [ "${total:-0}" -gt 0 ] || { tail -n 60 "$log" >&2; fail "no test ran in the $preset build"; }
  passed=$((passed + total - bad))
  failed=$((failed + bad))
  tail -n 3 "$log" | grep -E 'tests passed' || true
  if [ "$status" -ne 0 ]; then
    grep -vE ' Passed +[0-9.]+ sec$|^ +Start ' "$log" | tail -n 120 >&2
    echo "the whole output is in build/logs/test-$preset.log" >&2
  fi
}

# Runs one stage and says how long it took.
stage() {
  local start=$SECONDS
  "$@"
  say "$* took $((SECONDS - start)) s"
}

# Whether the benchmark runs to its end; what it measures beside others is worth nothing.
run_bench_once() {
  build_preset release bench
  say "running the benchmark once"
  quietly bench-once "$root/build/release/bin/bench" --rounds 15 --min-time 0.001
  if grep -qE '^bench: .* targets' "$logs/bench-once.log"; then
    passed=$((passed + 1))
  else
    echo "the benchmark did not come to its end; see build/logs/bench-once.log" >&2
    failed=$((failed + 1))
  fi
}

dev_test() {
  [ $# -eq 0 ] || fail "usage: ./dev test"
  dev_setup
  stage dev_check
  stage run_tests release
  stage run_bench_once
  stage build_macos
  stage run_tests macos release
  stage run_tests reproducible release
  stage run_tests sanitize
  stage run_tests tsan
  say "all stages took $SECONDS s"
  printf '%d passed, %d failed\n' "$passed" "$failed"
  [ "$failed" -eq 0 ]
}
