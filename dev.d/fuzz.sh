# Fuzzing under the sanitizers: a module that answers what it likes behind the adapter, and the
# reader of certificates beside OpenSSL.
# shellcheck shell=bash disable=SC2154 # root, logs, demo and called_from are dev's

# Fuzzes one subject: its name, the runs, the length of the longest input.
fuzz_one() {
  local subject=$1 runs=$2 length=$3
  # What the fuzzer learns on the way is its own: the tree's corpus stays as it is.
  local found=$root/build/fuzz/findings learnt log=$logs/fuzz-$subject.log start=$SECONDS
  learnt=$(mktemp -d)
  # shellcheck disable=SC2064 # the folder of now
  trap "rm -rf '$learnt'" EXIT
  mkdir -p "$found"
  say "fuzzing, $runs runs: $subject"
  if ! "$root/build/fuzz/bin/${subject}_fuzz" -runs="$runs" -max_len="$length" -timeout=20 \
    -seed=1 -artifact_prefix="$found/$subject-" "$learnt" "$root/fuzz/corpus/$subject" \
    >"$log" 2>&1; then
    grep -avE '^#|^\t|DE: ' "$log" | tail -n 60 >&2
    fail "a finding; its input is in build/fuzz/findings, the whole output in $log"
  fi
  grep -aq "^Done $runs runs" "$log" || fail "it stopped early; see $log"
  rm -rf "$learnt"
  say "$subject took $((SECONDS - start)) s"
}

dev_fuzz() {
  local runs=1000000
  if [ "${1:-}" = --runs ] && [ $# -eq 2 ] && [[ $2 =~ ^[0-9]{1,12}$ ]]; then
    runs=$2
    shift 2
  fi
  [ $# -eq 0 ] || fail "usage: ./dev fuzz [--runs N]"
  dev_setup
  build_preset fuzz adapter_fuzz certificate_fuzz
  fuzz_one adapter "$runs" 512
  # OpenSSL reads a tenth as fast.
  fuzz_one certificate $(((runs + 9) / 10)) 1024
  printf '%d runs, no finding\n' "$runs"
}
