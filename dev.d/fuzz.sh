# Fuzzing: a module that answers what it likes behind the adapter, under the sanitizers.
# shellcheck shell=bash disable=SC2154 # root, logs, demo and called_from are dev's

dev_fuzz() {
  local runs=1000000
  if [ "${1:-}" = --runs ] && [ $# -eq 2 ] && [[ $2 =~ ^[0-9]{1,12}$ ]]; then
    runs=$2
    shift 2
  fi
  [ $# -eq 0 ] || fail "usage: ./dev fuzz [--runs N]"
  dev_setup
  build_preset fuzz
  # What the fuzzer learns on the way is its own: the tree's corpus stays as it is.
  local folder found=$root/build/fuzz/findings log=$logs/fuzz.log
  folder=$(mktemp -d)
  # shellcheck disable=SC2064 # the folder of now
  trap "rm -rf '$folder'" EXIT
  mkdir -p "$found"
  say "fuzzing, $runs runs"
  local start=$SECONDS
  if ! "$root/build/fuzz/bin/adapter_fuzz" -runs="$runs" -max_len=512 -timeout=20 -seed=1 \
    -artifact_prefix="$found/" "$folder" "$root/fuzz/corpus" >"$log" 2>&1; then
    grep -avE '^#|^\t|DE: ' "$log" | tail -n 60 >&2
    fail "a finding; its input is in build/fuzz/findings, the whole output in build/logs/fuzz.log"
  fi
  grep -aq "^Done $runs runs" "$log" || fail "it stopped early; see build/logs/fuzz.log"
  local seconds=$((SECONDS - start))
  printf '%d runs in %d s, no finding\n' "$runs" "$seconds"
}
