# Formatter, linter, static analyser, shell checks.
# shellcheck shell=bash disable=SC2154 # root, logs, demo and called_from are dev's

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
# retain-count checker for the manual memory management. Over GoogleTest's macros that takes minutes
# a file, so tests get a shorter list.
check_lint() {
  say "linter and static analyser"
  build_preset release
  quietly lint lint_files "" "$@" < <(sources '*.cpp' '*.mm' | grep -vE "$test_files")
  say "linter on the tests"
  quietly lint-tests lint_files "$test_checks" "$@" < <(sources '*.cpp' '*.mm' | grep -E "$test_files")
}
test_files='_test\.(cpp|mm)$|^tests/|/testing/'
test_checks='-*,bugprone-dangling-handle,bugprone-infinite-loop,bugprone-sizeof-expression'
test_checks+=',bugprone-suspicious-*,bugprone-unused-return-value,bugprone-use-after-move'
test_checks+=',misc-redundant-expression,modernize-use-nullptr,modernize-use-override'
test_checks+=',readability-misleading-indentation'

# lint_files CHECKS [--fix]: the files come on standard input.
lint_files() {
  local checks=$1
  shift
  xargs -P "$(nproc)" -n 4 clang-tidy-19 -p build/release --quiet --warnings-as-errors='*' \
    --checks="$checks" "$@"
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
