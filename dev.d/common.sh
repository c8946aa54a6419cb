# What the commands share: progress, failures, stages with their times.
# shellcheck shell=bash disable=SC2154 # root, logs, demo and called_from are dev's

say() { printf '%s\n' "== $*"; }

fail() {
  printf '%s\n' "./dev: $*" >&2
  exit 1
}

# Runs a command with its output in a log; shows the end of the log when it fails.
#   quietly NAME COMMAND...
quietly() {
  local name=$1
  shift
  mkdir -p "$logs"
  if ! "$@" >"$logs/$name.log" 2>&1; then
    tail -n 60 "$logs/$name.log" >&2
    fail "$name failed; the whole output is in build/logs/$name.log"
  fi
}
