# The tests: ./dev test for one tree, ./dev full for everything that finds faults.
# shellcheck shell=bash disable=SC2154 # root, logs, demo and called_from are dev's

passed=0
failed=0

# Runs one stage and says how long it took.
stage() {
  local start=$SECONDS
  "$@"
  say "$* took $((SECONDS - start)) s"
}

# Counts a command of ours as one test, in a process of its own: the others run after a failure too.
#   step COMMAND [ARGUMENT...]
step() {
  if "$root/dev" "$@"; then
    passed=$((passed + 1))
  else
    echo "./dev $* failed" >&2
    failed=$((failed + 1))
  fi
}

# Runs a test preset in a tree that is built already and adds up its tests: GoogleTest's one by one,
# any other program as one.
#   run_tests TEST_PRESET
run_tests() {
  local preset=$1 log=$logs/test-$1.log status=0 good bad
  # One more than there are processors: some tests wait for others' programs.
  ctest --preset "$preset" -V -j "$(($(nproc) + 1))" >"$log" 2>&1 || status=$?
  read -r good bad < <(awk -v failures="$log.failed" -f dev.d/tests.awk "$log")
  [ $((good + bad)) -gt 0 ] || { tail -n 60 "$log" >&2; fail "no test ran ($preset)"; }
  [ "$status" -eq 0 ] || [ "$bad" -gt 0 ] || bad=1
  passed=$((passed + good))
  failed=$((failed + bad))
  echo "   $good passed, $bad failed"
  if [ "$bad" -gt 0 ]; then
    tail -n 120 "$log.failed" >&2
    echo "the whole output is in build/logs/test-$preset.log" >&2
  fi
}

# Builds what a preset builds, and runs its tests.
#   run_tree PRESET
run_tree() {
  build_preset "$1"
  say "testing ($1)"
  run_tests "$1"
}

# Whether the benchmark runs to its end; what it measures beside others is worth nothing.
run_bench_once() {
  build_preset release bench
  if (quietly bench-once python3 "$root/bench/bench.py" "$root/build/release/bin/bench" --quick) &&
    grep -qE '^bench: .* targets' "$logs/bench-once.log"; then
    passed=$((passed + 1))
  else
    echo "the benchmark did not come to its end; see build/logs/bench-once.log" >&2
    failed=$((failed + 1))
  fi
}

# The stages of ./dev test. The sanitizers' tree inspects the macOS bundle too.
test_stages() {
  stage build_macos
  stage run_tree sanitize
  stage step demo sanitize
  stage step demo --macho sanitize
}

# The last line.
report() {
  say "all stages took $SECONDS s"
  printf '%d passed, %d failed\n' "$passed" "$failed"
  [ "$failed" -eq 0 ]
}

dev_test() {
  [ $# -eq 0 ] || fail "usage: ./dev test"
  dev_setup
  test_stages
  report
}

dev_full() {
  [ $# -eq 0 ] || fail "usage: ./dev full"
  dev_setup
  stage step check
  test_stages
  stage run_tree release
  stage run_tests matrix
  stage run_tests macho
  stage run_bench_once
  stage run_tests reproducible
  stage run_tree tsan
  stage step coverage
  report
}
