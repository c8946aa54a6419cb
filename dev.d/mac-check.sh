# What only a Mac can show, step by step, with a report that can be attached to a bug.
# shellcheck shell=bash disable=SC2154 # root, logs, demo and called_from are dev's

# A step is a function, run in a shell of its own that ends at the first failure. It says by its exit
# status how it went: 0, or $not_here when this Mac lacks what it needs, or anything else for a
# failure; and by its last line of output why.
not_here=77

mac_steps=(build unpack help libraries card configure sign seal lists modulecheck harness register
  report listing)

# Runs a step and says how it ended; notes it in the report, with its output behind.
#   mac_step NAME
mac_step() {
  local name=$1 log=$mac_folder/$1.log status=0 verdict reason
  # Not behind || or if: a failure would not end a shell there.
  set +e
  (
    set -e
    "mac_step_$name"
  ) >"$log" 2>&1 </dev/null
  status=$?
  set -e
  reason=$(tail -n 1 "$log")
  case $status-$name in
    0-*) verdict=PASS ;;
    # A hosted Mac has no user whose extensions the system keeps; everything else is to be there.
    "$not_here-register" | "$not_here-listing") verdict='NOT HERE' ;;
    *) verdict=FAIL ;;
  esac
  [ "$verdict" != FAIL ] || mac_failed=$((mac_failed + 1))
  printf '%-8s  %-11s %s\n' "$verdict" "$name" "$reason" | tee -a "$mac_folder/verdicts"
  grep '^DIFFERS ' "$log" || true
}

# Ends a step for want of a tool: mac_needs TOOL...
mac_needs() {
  local tool
  for tool in "$@"; do
    command -v "$tool" >/dev/null || {
      echo "there is no '$tool' here"
      exit "$not_here"
    }
  done
}

mac_step_build() {
  mac_needs cmake xcode-select ditto
  "$root/dev" macos
}

# The application that ships, and what comes with it: the zip that was given, or the one just built.
mac_step_unpack() {
  mac_needs ditto
  ditto -x -k "$mac_zip" "$mac_folder"
  [ -d "$mac_shipped/KelvrinToken.app" ] || fail "$mac_zip holds no KelvrinToken/KelvrinToken.app"
  echo "$mac_zip"
}

mac_step_help() {
  "$mac_shipped/bin/modulecheck" --help
  echo "the modulecheck that ships runs"
}

mac_step_libraries() {
  find "$mac_shipped" -name '*.dylib' -exec "$root/build/macos/harness/load_libraries" {} +
}

mac_step_card() {
  mac_needs softhsm2-util pkcs11-tool certtool openssl
  "$root/tests/card/make-card" "$mac_folder/card"
  printf %s "For the card's owner alone." |
    openssl pkeyutl -encrypt -pubin -inkey "$mac_folder/card/card/rsa.pub.pem" \
      -out "$mac_folder/ciphertext"
  echo "SoftHSM2 plays the card"
}

# Prints the path of SoftHSM2's library, beside its program.
mac_softhsm() {
  local library
  library=$(dirname "$(command -v softhsm2-util)")/../lib/softhsm/libsofthsm2.so
  [ -f "$library" ] || fail "there is no $library"
  echo "$library"
}

mac_step_configure() {
  mac_needs softhsm2-util
  local module
  module=$(mac_softhsm)
  "$mac_shipped/packaging/configure.sh" --app "$mac_shipped/KelvrinToken.app" \
    --module "$module" --reader "SoftHSM slot"
}

mac_step_sign() {
  mac_needs codesign
  "$mac_shipped/packaging/sign.sh" --app "$mac_shipped/KelvrinToken.app" --identity -
}

mac_step_seal() {
  mac_needs codesign
  codesign --verify --strict --deep "$mac_shipped/KelvrinToken.app"
  echo "codesign verifies the application and all in it"
}

mac_step_lists() {
  mac_needs plutil
  find "$mac_shipped" \( -name '*.plist' -o -name '*.strings' -o -name '*.entitlements' \) \
    -exec plutil -lint {} +
}

mac_step_modulecheck() {
  mac_needs softhsm2-util
  local module status=0
  module=$(mac_softhsm)
  SOFTHSM2_CONF=$mac_folder/card/softhsm2.conf "$mac_shipped/bin/modulecheck" "$module" \
    --reader "SoftHSM slot" --adapter --pin-file "$mac_folder/card/card/pin" || status=$?
  case $status in
    0 | 3) ;; # 3: with the adapter
    *) return 1 ;;
  esac
}

# Puts the harness into a bundle of its own with the extension's resources: an extension is a program
# that only the system starts.
mac_harness_bundle() {
  mkdir -p "$1/Contents/MacOS"
  cp "$root/build/macos/harness/insert_card" "$1/Contents/MacOS/"
  cp -R "$mac_extension/Contents/Resources" "$1/Contents/"
  printf '%s\n' '<?xml version="1.0" encoding="UTF-8"?>' \
    '<plist version="1.0"><dict>' \
    '<key>CFBundleIdentifier</key><string>org.kelvrin.KelvrinToken.harness</string>' \
    '<key>CFBundleExecutable</key><string>insert_card</string>' \
    '</dict></plist>' >"$1/Contents/Info.plist"
}

# Our lines have to be the expected ones. Those of Apple's classes may differ, and all of them where
# Apple's classes refused something: that is said line by line.
mac_step_harness() {
  local bundle=$mac_folder/Harness.app expected=$root/tests/harness/expected.txt
  local output=$mac_folder/harness.txt status=0 differing
  mac_harness_bundle "$bundle"
  SOFTHSM2_CONF=$mac_folder/card/softhsm2.conf "$bundle/Contents/MacOS/insert_card" "$bundle" \
    "$mac_folder/card/card/pin" "$mac_folder/ciphertext" >"$output" || status=$?
  cat "$output"
  diff "$expected" "$output" >"$output.diff" || true
  sed -n 's/^< /DIFFERS expected: /p;s/^> /DIFFERS got:      /p' "$output.diff"
  differing=$(grep -c '^[<>]' "$output.diff" || true)
  case $status in
    0)
      grep -v '^Apple:' "$expected" >"$output.expected"
      grep -v '^Apple:' "$output" >"$output.ours"
      cmp "$output.expected" "$output.ours"
      ;;
    3) ;;
    *) fail "the harness ended with status $status" ;;
  esac
  echo "lines that differ: $differing"
}

# Whether the system takes an extension that is signed for this Mac alone is its own affair.
mac_step_register() {
  mac_needs pluginkit
  pluginkit -a "$mac_extension" || {
    echo "pluginkit does not take the extension"
    exit "$not_here"
  }
  echo "pluginkit takes the extension"
}

# Kept apart from what is attached to a bug: it may tell of the cards of whoever runs this.
mac_step_report() {
  "$mac_shipped/KelvrinToken.app/Contents/MacOS/KelvrinToken" --report >"$mac_folder/window.txt"
  [ -s "$mac_folder/window.txt" ] || fail "the application's report is empty"
  echo "the application's report is build/mac-check/window.txt"
}

mac_step_listing() {
  mac_needs pluginkit
  local listed=no
  pluginkit -m -v -p com.apple.ctk-tokens >"$mac_folder/listing" || true
  cat "$mac_folder/listing"
  grep -qF "$mac_extension" "$mac_folder/listing" && listed=yes
  pluginkit -r "$mac_extension" || true
  if [ "$listed" = no ]; then
    echo "pluginkit does not list the extension"
    exit "$not_here"
  fi
  echo "pluginkit lists the extension"
}

# The report: what Mac this is, the verdicts, what each step said.
write_mac_report() {
  local name
  {
    sw_vers || true
    uname -m
    xcodebuild -version || xcode-select -p || true
    git log -1 --format='commit %H' || true
    printf '\n'
    cat "$mac_folder/verdicts"
    for name in "${mac_steps[@]}"; do
      printf '\n== %s\n' "$name"
      cat "$mac_folder/$name.log"
    done
  } >"$mac_folder/report.txt" 2>&1
}

# dev_mac_check [--zip FILE]
dev_mac_check() {
  local name
  mac_zip=$root/build/macos/KelvrinToken.zip
  if [ "${1:-}" = --zip ] && [ $# -eq 2 ]; then
    mac_zip=$2
    case $mac_zip in /*) ;; *) mac_zip=$called_from/$mac_zip ;; esac
    shift 2
  fi
  [ $# -eq 0 ] || fail "usage: ./dev mac-check [--zip KelvrinToken.zip]"
  [ "$(uname -s)" = Darwin ] || fail "this command needs a Mac"
  mac_folder=$(pwd -P)/build/mac-check
  mac_shipped=$mac_folder/KelvrinToken
  mac_extension=$mac_shipped/KelvrinToken.app/Contents/PlugIns/KelvrinToken.appex
  mac_failed=0
  rm -rf "$mac_folder"
  mkdir -p "$mac_folder"
  for name in "${mac_steps[@]}"; do mac_step "$name"; done
  write_mac_report
  say "mac-check: $mac_failed of ${#mac_steps[@]} steps failed; the report is build/mac-check/report.txt"
  [ "$mac_failed" -eq 0 ]
}
