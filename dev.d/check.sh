# Formatter, linter, static analyser, shell checks.
# shellcheck shell=bash disable=SC2154 # root, logs, demo and called_from are dev's

sources() {
  git ls-files -co --exclude-standard -- "$@" |
    while read -r f; do [ ! -e "$f" ] || echo "$f"; done
}

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

# The sources that a build compiles; its compile commands say which.
#   compiled_by FOLDER
compiled_by() {
  sed -nE 's/^ *"file": "(.*)",?$/\1/p' "$1/compile_commands.json" | sed "s,^$root/,," | sort -u
}

# The linter runs the static analyser too: clang-analyzer-* is among its checks, with the
# retain-count checker for the manual memory management. Over GoogleTest's macros that takes minutes
# a file, so tests get a shorter list, and are read in the batches that the build makes of them.
check_lint() {
  say "linter and static analyser"
  quietly configure-release cmake --preset release
  quietly build-test-headers cmake --build --preset release --target test_headers
  local files
  files=$(comm -12 <(sources '*.cpp' '*.mm' | sort) <(compiled_by build/release))
  quietly lint lint_files build/release "" "$@" < <(grep -vE "$test_files" <<<"$files")
  say "linter on the tests"
  files=$(grep -E "$test_files" <<<"$files"; compiled_by build/release | grep -E "$test_batches")
  quietly lint-tests lint_files build/release "$test_checks" --header-filter="$root/.*" "$@" \
    <<<"$files"
}
test_files='_test\.(cpp|mm)$|^tests/|/testing/'
test_batches='^build/release/.*_batch_[0-9]+\.(cpp|mm)$'
test_checks='-*,bugprone-dangling-handle,bugprone-infinite-loop,bugprone-sizeof-expression'
test_checks+=',bugprone-suspicious-*,-bugprone-suspicious-include'
test_checks+=',bugprone-unused-return-value,bugprone-use-after-move'
test_checks+=',misc-redundant-expression,modernize-use-nullptr,modernize-use-override'
test_checks+=',readability-misleading-indentation'

# The same for what macOS gets to see of Objective-C++ and of the access layer, in one slice: the
# linter cannot read commands for two.
check_lint_macos() {
  say "linter and static analyser (macos)"
  prepare_sdk
  quietly configure-macos-arm64 cmake --preset macos-arm64
  check_leak_finder
  compiled_by build/macos-arm64 | grep -E '^(app|token|p11)/' >"$logs/macos-sources"
  quietly macos-sources diff "$logs/macos-sources" \
    <(sources 'app/*.mm' 'app/*.cpp' 'token/*.mm' 'token/*.cpp' 'p11/*.cpp' |
      grep -vE "$test_files" | sort)
  quietly lint-macos lint_files build/macos-arm64 "" "$@" <"$logs/macos-sources"
}

# The retain-count checker finds what it is there for, with the checks that everything else gets.
check_leak_finder() {
  local log=$logs/leak-finder.log
  clang-tidy-19 --quiet --checks="" --warnings-as-errors='*' tests/macos/leak.mm -- \
    -x objective-c++ -std=c++20 -fno-objc-arc --target=arm64-apple-macos11.0 \
    -isysroot "$macos_sdk" -isystem platform/include \
    >"$log" 2>&1 || true
  grep -q 'error: Potential leak.*clang-analyzer-osx.cocoa.RetainCount' "$log" ||
    fail "the static analyser overlooks a leak; see $log"
}

# lint_files BUILD_FOLDER CHECKS [--fix]: the files come on standard input. Only findings are
# printed: the linter's progress would push them out of what is shown of a failure.
lint_files() {
  local folder=$1 checks=$2
  shift 2
  xargs -P "$(nproc)" -n 4 clang-tidy-19 -p "$folder" --quiet --warnings-as-errors='*' \
    --checks="$checks" "$@" 2>&1 |
    sed -E '/^[0-9]+ warnings? generated\.$/d; /^\[[0-9]+\/[0-9]+\] Processing file /d'
}

check_shell() {
  say "shell scripts"
  local files
  mapfile -t files < <(sources 'dev.d/*.sh' '*.sh')
  quietly shellcheck shellcheck -x dev .ci/run tests/card/make-card platform/macos/make-sdk \
    "${files[@]}"
}

# The workflow: its form, and the shell in its steps.
check_workflow() {
  say "workflow"
  quietly yamllint yamllint --strict .github/workflows
  python3 - .github/workflows/ci.yml >"$logs/workflow-steps.sh" <<'EOT'
import sys, yaml
with open(sys.argv[1], encoding="utf-8") as workflow:
    for job in yaml.safe_load(workflow)["jobs"].values():
        for step in job["steps"]:
            print(step.get("run", ""))
EOT
  quietly workflow-steps shellcheck --shell=bash "$logs/workflow-steps.sh"
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
  check_workflow
  check_lint "${fix[@]}"
  check_lint_macos "${fix[@]}"
  say "check: no findings"
}
