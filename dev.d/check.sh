# Formatter, linter, static analyser, shell checks.
# shellcheck shell=bash disable=SC2154 # root, logs and demo are dev's

sources() { git ls-files -co --exclude-standard -- "$@" | while read -r f; do [ ! -e "$f" ] || echo "$f"; done; }

check_format() {
  say "formatter"
  local files
  mapfile -t files < <(sources '*.cpp' '*.mm' '*.h' '*.c')
  if [ "${1:-}" = --fix ]; then
    clang-format-19 -i "${files[@]}"
  else
    quietly format clang-format-19 --dry-run --Werror "${files[@]}"
  fi
}

# The linter runs the static analyser too: clang-analyzer-* is among its checks, with the
# retain-count checker for the manual memory management.
check_lint() {
  say "linter and static analyser"
  build_preset release
  local files
  mapfile -t files < <(sources '*.cpp' '*.mm')
  quietly lint lint_files "$@" "${files[@]}"
}

lint_files() {
  local fix=()
  if [ "${1:-}" = --fix ]; then
    fix=(--fix)
    shift
  fi
  printf '%s\n' "$@" |
    xargs -P "$(nproc)" -n 4 clang-tidy-19 -p build/release --quiet --warnings-as-errors='*' "${fix[@]}"
}

check_shell() {
  say "shell scripts"
  local files
  mapfile -t files < <(sources 'dev.d/*.sh' '*.sh')
  quietly shellcheck shellcheck -x dev .ci/run tests/card/make-card "${files[@]}"
}

dev_check() {
  local fix=()
  case ${1:-} in
    "") ;;
    --fix) fix=(--fix) ;;
    *) fail "usage: ./dev check [--fix]" ;;
  esac
  dev_setup
  check_format "${fix[@]}"
  check_shell
  check_lint "${fix[@]}"
  say "check: no findings"
}
