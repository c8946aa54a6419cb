# Line and branch coverage of the rooms that ship, from all tests.
# shellcheck shell=bash disable=SC2154 # root, logs, demo and called_from are dev's

# Says where no test came by: lines fail, unless they end the process, which a profile does not
# survive; branches fail unless docs/testing.md names their line with the reason.
report_gaps() {
  local kind place file line text gaps=0
  while IFS=$'\t' read -r kind place; do
    file=${place%:*} line=${place##*:}
    text=$(sed -n "${line}s/^[[:space:]]*//p" "$file")
    case $kind in
      line)
        case $text in
          *'abort()'* | *'exit(1)'*) echo "   ends the process, see docs/testing.md: $place: $text" ;;
          *)
            echo "   no test runs $place: $text"
            case $file in p11/* | token/*) gaps=1 ;; esac ;;
        esac ;;
      branch)
        if grep -F -- "\`$file\`" docs/testing.md | grep -qF -- "\`$text\`"; then
          echo "   a branch explained in docs/testing.md: $place: $text"
        else
          echo "   no test takes a branch of $place: $text"
          case $file in p11/* | token/*) gaps=1 ;; esac
        fi ;;
    esac
  done
  return "$gaps"
}

dev_coverage() {
  [ $# -eq 0 ] || fail "usage: ./dev coverage"
  dev_setup
  build_preset coverage
  local profiles=$root/build/coverage/profiles trace=$root/build/coverage/trace
  local binary objects=() status=0
  rm -rf "$profiles"
  say "testing (coverage)"
  LLVM_PROFILE_FILE=$profiles/%p-%m.profraw quietly test-coverage \
    ctest --preset coverage -j "$(nproc)"
  llvm-profdata-19 merge --sparse -o "$trace.profdata" "$profiles"
  while IFS= read -r binary; do objects+=(-object "$binary"); done < <(
    find build/coverage -type f \( -name '*_test' -o -name KelvrinToken -o -name '*.dylib' \) | sort)
  llvm-cov-19 export --format=lcov --instr-profile "$trace.profdata" "${objects[@]}" \
    -ignore-filename-regex '_test\.(cpp|mm)$|/testing/' \
    -sources "$root/p11" "$root/token" "$root/adapter" >"$trace.lcov" 2>"$trace.log"
  awk -v root="$root" -f dev.d/coverage.awk "$trace.lcov" | sort -u >"$trace.tsv"
  sed '/^summary/d' "$trace.tsv" | report_gaps || status=1
  sed -n 's/^summary\t//p' "$trace.tsv"
  [ "$status" -eq 0 ] || fail "coverage: some places of p11/ or token/ are run by no test"
  say "coverage: every line of p11/ and token/ is run"
}
