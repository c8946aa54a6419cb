# The main job, shown: a card is made and inserted, and OpenSSL verifies what its keys did.
# shellcheck shell=bash disable=SC2154 # root, logs, demo and called_from are dev's

rsa_key=0201 # object IDs: kind 2 (key), then the CKA_ID that make-card gives
ec_key=0202

# tokenhost on the demo's card; over the files that ship, with their loader.
demo_host() {
  SOFTHSM2_CONF=$demo/card/softhsm2.conf LD_PRELOAD=$demo_loader \
    "$demo/tokenhost" --bundle "$demo/KelvrinToken.appex" "$@"
}

# tokenhost with the card's PIN. Standard error, where the access layer tells of its searches, is
# shown when it fails.
demo_pin() {
  demo_host --pin-file "$demo/card/card/pin" "$@" 2>"$demo/error" || {
    cat "$demo/error" >&2
    fail "tokenhost $* failed"
  }
}

make_demo_card() {
  say "making a card: token label \"4711 0815\", an RSA-2048 key and a P-256 key, two certificates"
  rm -rf "$demo"
  mkdir -p "$demo"
  quietly make-card tests/card/make-card "$demo/card" --label "4711 0815"
  cp -R "build/$demo_tree/KelvrinToken.appex" "$demo/"
  if [ -n "$demo_loader" ]; then
    say "taking extension and adapter of the macOS build, run here by platform/macho"
    local extension=KelvrinToken.appex/Contents file
    for file in MacOS/KelvrinToken Resources/libpkcs11qarn_{Lindel,Vumo}_PCSC.dylib; do
      cp "$macos_build/KelvrinToken.app/Contents/PlugIns/$extension/$file" "$demo/$extension/$file"
    done
    ln -s "$demo_loader" "$demo/libmacho.so"
  fi
  ln -s "$root/build/$demo_tree/bin/tokenhost" "$demo/tokenhost"
  echo "A message that only the card's owner can have signed." >"$demo/message"
}

# Signs the message and has OpenSSL verify it: demo_sign KEY ALGORITHM PUBLIC-KEY [OPTION...]
demo_sign() {
  local key=$1 algorithm=$2 public=$3
  shift 3
  say "signing with $algorithm"
  demo_pin sign --key "$key" --algorithm "$algorithm" --in "$demo/message" --out "$demo/signature"
  openssl dgst -sha256 -verify "$demo/card/card/$public" -signature "$demo/signature" "$@" \
    "$demo/message" >"$demo/verdict" || fail "OpenSSL does not accept the signature"
  echo "   OpenSSL: $(cat "$demo/verdict")"
}

# Has OpenSSL encrypt the message and the card decrypt it: demo_decrypt ALGORITHM [OPTION...]
demo_decrypt() {
  local algorithm=$1
  shift
  say "decrypting with $algorithm what OpenSSL encrypted"
  openssl pkeyutl -encrypt -pubin -inkey "$demo/card/card/rsa.pub.pem" -in "$demo/message" \
    -out "$demo/ciphertext" "$@"
  demo_pin decrypt --key "$rsa_key" --algorithm "$algorithm" --in "$demo/ciphertext" \
    --out "$demo/plaintext"
  cmp "$demo/message" "$demo/plaintext" || fail "the plaintext differs from the message"
  echo "   the plaintext is the message"
}

# Runs tokenhost, which is to be refused for a reason: demo_refused PATTERN ARGUMENT...
demo_refused() {
  local pattern=$1 status=0
  shift
  demo_host "$@" >/dev/null 2>"$demo/error" || status=$?
  if [ "$status" -ne 1 ] || ! grep -qE "$pattern" "$demo/error"; then
    cat "$demo/error" >&2
    fail "expected a refusal that says '$pattern', got exit $status"
  fi
  sed -n 's/^tokenhost: /   /p' "$demo/error"
}

# dev_demo [--macho] [TREE]: with the files that ship; over the tree of that preset, of which another
# one than `release` has a card of its own.
dev_demo() {
  local macho=""
  demo_loader=
  [ "${1:-}" != --macho ] || { macho=1; shift; }
  demo_tree=${1:-release}
  case $#-$demo_tree in
    [01]-release) ;;
    1-sanitize)
      demo=$root/build/sanitize/demo
      export LSAN_OPTIONS=suppressions=$root/tests/lsan.supp:print_suppressions=0
      ;;
    *) fail "usage: ./dev demo [--macho] [release|sanitize]" ;;
  esac
  dev_setup
  build_preset "$demo_tree" tokenhost bundle
  if [ -n "$macho" ]; then
    [ -e "$macos_build/KelvrinToken.app" ] || build_macos
    build_preset "$demo_tree" macho
    # What the extension keeps on purpose is known by names, which the shipped files have not.
    export ASAN_OPTIONS=detect_leaks=0
    demo_loader=$root/build/$demo_tree/platform/macho/libmacho.so
  fi
  make_demo_card
  say "inserting the card; its keychain items:"
  demo_pin list

  demo_sign "$rsa_key" RSASignatureMessagePKCS1v15SHA256 rsa.pub.pem
  demo_sign "$rsa_key" RSASignatureMessagePSSSHA256 rsa.pub.pem \
    -sigopt rsa_padding_mode:pss -sigopt rsa_pss_saltlen:digest -sigopt rsa_mgf1_md:sha256
  demo_sign "$ec_key" ECDSASignatureMessageX962SHA256 ec.pub.pem
  demo_decrypt RSAEncryptionPKCS1
  demo_decrypt RSAEncryptionOAEPSHA256 -pkeyopt rsa_padding_mode:oaep -pkeyopt rsa_oaep_md:sha256

  say "a wrong PIN is refused:"
  echo 000000 >"$demo/wrong-pin"
  demo_refused 'did not accept the PIN' --pin-file "$demo/wrong-pin" sign --key "$rsa_key" \
    --algorithm RSASignatureMessagePKCS1v15SHA256 --in "$demo/message"
  say "key exchange is refused by the support check:"
  demo_refused 'not supported' exchange --key "$ec_key" \
    --algorithm ECDHKeyExchangeStandardX963SHA1 --in "$demo/message"

  rm -f "$demo/error" "$demo/verdict"
  say "try it: ./dev token list, ./dev token supports $rsa_key (the card's PIN is $(cat "$demo/card/card/pin"))"
  echo "demo: OpenSSL verified an RSA PKCS#1, an RSA PSS and an ECDSA signature and the card" \
    "decrypted PKCS#1 and OAEP; wrong PIN and key exchange were refused."
}

dev_token() {
  demo_loader=
  [ ! -e "$demo/libmacho.so" ] || demo_loader=$demo/libmacho.so
  [ -e "$demo/tokenhost" ] || fail "there is no demo card yet: run ./dev demo first"
  cd "$called_from" || exit # files are named as the caller sees them
  demo_host "$@"
}
