# Reads what `ctest -V` prints: "N: line" for a line of test N, then "1/9 Test #N: NAME ... Passed".
# Prints how many tests passed and how many failed, and writes what the failed ones said to the file
# `failures`. A program of GoogleTest says how many tests it ran; any other is one test.
/^[0-9]+: / {
  id = $1 + 0
  said[id] = said[id] $0 "\n"
  if (match($0, /\[  PASSED  \] [0-9]+ test/)) good[id] = substr($0, RSTART + 13) + 0
  if (match($0, /\[  FAILED  \] [0-9]+ tests?, listed/)) bad[id] = substr($0, RSTART + 13) + 0
}
/^ *[0-9]+\/[0-9]+ Test +#[0-9]+: / {
  id = substr($0, index($0, "#") + 1) + 0
  if ($0 ~ / Passed +[0-9.]+ sec/) {
    passed += id in good ? good[id] : 1
  } else {
    passed += good[id]
    failed += bad[id] > 0 ? bad[id] : 1
    printf "%s%s\n", said[id], $0 > failures
  }
}
END { print passed + 0, failed + 0 }
