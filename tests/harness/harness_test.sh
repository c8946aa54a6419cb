#!/usr/bin/env bash
# Runs the harness over a copy of a bundle and a card made for it; its output is the expected text.
#   harness_test.sh BUNDLE COMMAND...
set -euo pipefail
export LC_ALL=C.UTF-8
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cp -R "$1" "$folder/KelvrinToken.appex"
shift
cat >"$folder/KelvrinToken.appex/Contents/Resources/libpkcs11qarn_Lindel_PCSC.conf" <<'EOT'
module = /usr/lib/softhsm/libsofthsm2.so
reader-name = Kelvrin Reader
any-reader = yes
EOT
"$here/../card/make-card" "$folder" 2>"$folder/log" || { cat "$folder/log" >&2; exit 1; }
printf %s "For the card's owner alone." |
  openssl pkeyutl -encrypt -pubin -inkey "$folder/card/rsa.pub.pem" -out "$folder/ciphertext"
status=0
SOFTHSM2_CONF=$folder/softhsm2.conf "$@" "$folder/KelvrinToken.appex" "$folder/card/pin" \
  "$folder/ciphertext" >"$folder/output" 2>"$folder/error" || status=$?
if [ "$status" -ne 0 ] || ! diff "$here/expected.txt" "$folder/output"; then
  cat "$folder/error" >&2
  echo "harness_test: exit status $status" >&2
  exit 1
fi
