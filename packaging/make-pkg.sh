#!/usr/bin/env bash
# Makes an installer package of a signed application.
set -euo pipefail
# shellcheck source=packaging/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

usage() {
  cat <<'EOT'
usage: make-pkg.sh --app APP --identity ID --output FILE.pkg [--profile PROFILE]
                   [--keychain KEYCHAIN]

Makes a package that installs APP, which sign.sh has signed, in /Applications.
  --identity ID         name or SHA-1 of an installer identity, as 'security find-identity -p
                        basic' shows it: "Developer ID Installer: ..."
  --output FILE.pkg     replaced if it is there
  --profile PROFILE     notarise the package and staple the ticket to it; see notarise.sh
  --keychain KEYCHAIN   where to look for the identity
EOT
}

app='' identity='' output='' profile='' keychain=''
while [ $# -gt 0 ]; do
  case $1 in
    --app) need_value $# "$1" "${2-}"; app=$2; shift 2 ;;
    --identity) need_value $# "$1" "${2-}"; identity=$2; shift 2 ;;
    --output) need_value $# "$1" "${2-}"; output=$2; shift 2 ;;
    --profile) need_value $# "$1" "${2-}"; profile=$2; shift 2 ;;
    --keychain) need_value $# "$1" "${2-}"; keychain=$2; shift 2 ;;
    --help) usage; exit 0 ;;
    *) wrong_usage "unknown argument '$1'" ;;
  esac
done
[ -n "$app" ] || wrong_usage "--app is missing"
[ -n "$identity" ] || wrong_usage "--identity is missing"
[ -n "$output" ] || wrong_usage "--output is missing"
[[ $output == *?.pkg ]] || wrong_usage "the value of --output does not end with .pkg"
[ "$identity" != - ] || wrong_usage "a package cannot be signed for one Mac alone; name an identity"

for tool in codesign ditto pkgbuild plutil productbuild; do need_tool "$tool"; done
if [ -n "$profile" ]; then
  need_tool spctl
  need_xcode_tool notarytool
  need_xcode_tool stapler
fi
find_app "$app"
folder=$(cd -- "$(dirname -- "$output")" 2>/dev/null && pwd -P) ||
  fail "there is no folder '$(dirname -- "$output")'"
output=$folder/${output##*/}
[ ! -d "$output" ] || fail "'$output' is a folder"
identifier=$(plist_text "$app/Contents/Info.plist" CFBundleIdentifier)
version=$(plist_text "$app/Contents/Info.plist" CFBundleShortVersionString)
need_signed_app
need_identity "$identity" basic "$keychain"

make_workplace "$folder"
mkdir "$workplace/root" "$workplace/parts"
ditto "$app" "$workplace/root/${app##*/}" || fail "ditto cannot copy '$app'"
# Relocatable components are installed over whatever copy the installer finds, in a build folder
# perhaps.
pkgbuild --analyze --root "$workplace/root" "$workplace/parts/components.plist" ||
  fail "pkgbuild cannot tell the package's components"
plutil -replace 0.BundleIsRelocatable -bool NO "$workplace/parts/components.plist" ||
  fail "plutil cannot change the list of components"
pkgbuild --root "$workplace/root" --component-plist "$workplace/parts/components.plist" \
  --install-location /Applications --identifier "$identifier.pkg" --version "$version" \
  "$workplace/parts/component.pkg" || fail "pkgbuild failed, see above"
# Without these the installer takes a package for one of Intel's, and wants Rosetta on other Macs.
printf '%s\n' '<?xml version="1.0" encoding="UTF-8"?>' '<plist version="1.0">' '<dict>' \
  '<key>arch</key>' '<array><string>x86_64</string><string>arm64</string></array>' '</dict>' \
  '</plist>' >"$workplace/parts/product.plist"
package=$workplace/${output##*/}
productbuild --package "$workplace/parts/component.pkg" --sign "$identity" \
  ${keychain:+--keychain "$keychain"} --timestamp \
  --product "$workplace/parts/product.plist" "$package" ||
  fail "productbuild failed, see above"
if [ -n "$profile" ]; then
  notarise "$package" "$profile"
  staple "$package" install
fi
mv -f "$package" "$output" || fail "'$output' cannot be written"
say "'$output' installs ${app##*/} $version in /Applications"
