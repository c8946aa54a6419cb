#!/usr/bin/env bash
# Has Apple's notary service look at a signed application, and staples its ticket to it.
set -euo pipefail
# shellcheck source=packaging/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

usage() {
  cat <<'EOT'
usage: notarise.sh --app APP --profile PROFILE

Sends APP, signed with a Developer ID identity, to Apple's notary service, waits for the answer,
staples the ticket to APP and asks the system whether it would open it.
  --profile PROFILE   the credentials' name in the keychain, from
                      'xcrun notarytool store-credentials PROFILE'
EOT
}

app='' profile=''
while [ $# -gt 0 ]; do
  case $1 in
    --app) need_value $# "$1" "${2-}"; app=$2; shift 2 ;;
    --profile) need_value $# "$1" "${2-}"; profile=$2; shift 2 ;;
    --help) usage; exit 0 ;;
    *) wrong_usage "unknown argument '$1'" ;;
  esac
done
[ -n "$app" ] || wrong_usage "--app is missing"
[ -n "$profile" ] || wrong_usage "--profile is missing"

for tool in codesign ditto spctl; do need_tool "$tool"; done
need_xcode_tool notarytool
need_xcode_tool stapler
find_app "$app"
[ -w "$app/Contents" ] || fail "'$app' cannot be changed; use sudo, or a copy of your own"
need_signed_app

make_workplace "${TMPDIR:-/tmp}"
archive=$workplace/${app##*/}.zip
ditto -c -k --keepParent "$app" "$archive" || fail "ditto cannot make an archive of '$app'"
notarise "$archive" "$profile"
staple "$app" execute
say "'$app' is notarised"
