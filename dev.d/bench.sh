# Speed: builds the benchmark optimised and runs it.
# shellcheck shell=bash disable=SC2154 # root, logs, demo and called_from are dev's

dev_bench() {
  dev_setup
  build_preset release bench
  # What a run leaves behind when it is interrupted goes with this folder.
  local folder
  folder=$(mktemp -d)
  # shellcheck disable=SC2064 # the folder of now
  trap "rm -rf '$folder'" EXIT
  say "measuring, which takes some minutes; leave the machine to itself meanwhile"
  cd "$called_from" || exit # --json names its file as the caller sees it
  TMPDIR=$folder python3 "$root/bench/bench.py" "$root/build/release/bin/bench" "$@"
}
