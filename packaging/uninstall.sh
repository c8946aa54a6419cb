#!/usr/bin/env bash
# Takes the extension and its application off this Mac, and says what is left.
set -euo pipefail
# shellcheck source=packaging/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

usage() {
  cat <<'EOT'
usage: uninstall.sh [--app APP]

Has the system forget the extension in APP, removes APP, and says what is left on this Mac. Run it
with sudo when a package installed APP.
  --app APP   default: /Applications/KelvrinToken.app
EOT
}

app=/Applications/KelvrinToken.app
while [ $# -gt 0 ]; do
  case $1 in
    --app) need_value $# "$1" "${2-}"; app=$2; shift 2 ;;
    --help) usage; exit 0 ;;
    *) wrong_usage "unknown argument '$1'" ;;
  esac
done

# pluginkit's registry is each user's own: with sudo, of the one who called it.
as_user() {
  if [ "$(id -u)" = 0 ] && [ -n "${SUDO_USER-}" ]; then
    sudo -u "$SUDO_USER" "$@"
  else
    "$@"
  fi
}

# Says what is left, with the command that removes it.
tell_rest() {
  local container="${HOME-}/Library/Containers/$extension_id"
  local settings="${HOME-}/Library/Preferences/$application_id.plist"
  say "what is left, as far as it was ever there:"
  if [ -d "$container" ]; then
    printf '%s\n' "   the extension's data: rm -rf '$container'" \
      "     if that is not permitted: in the Finder, or allow your terminal full disk access"
  fi
  if [ -f "$settings" ]; then
    printf '%s\n' "   where the window was: defaults delete $application_id"
  fi
  if command -v pkgutil >/dev/null 2>&1 &&
    pkgutil --pkg-info "$application_id.pkg" >/dev/null 2>&1; then
    printf '%s\n' "   the installer's receipt: sudo pkgutil --forget $application_id.pkg"
  fi
  cat <<'EOT'
   the profile that shows private log data: System Settings, General, Device Management; before
     macOS 15 Privacy & Security, Profiles; before macOS 13 System Preferences, Profiles
   the switch that turned the system's own card driver off:
     sudo defaults delete /Library/Preferences/com.apple.security.smartcard DisabledTokens
   websites' choice of a certificate: Keychain Access, identity preferences
   the extension's process, if a card was in the reader: log out and in again
EOT
}

need_tool pluginkit
find_app "$app"
parent=${app%/*}
if [ ! -w "$parent" ] || [ ! -w "$app" ] || [ ! -w "$app/Contents" ]; then
  fail "'$app' cannot be removed by you; run this with sudo"
fi
extension_id=$(plist_text "$extension/Contents/Info.plist" CFBundleIdentifier)
application_id=$(plist_text "$app/Contents/Info.plist" CFBundleIdentifier)

as_user pluginkit -r "$extension" ||
  note "pluginkit did not know the extension '$extension_id'; going on"
make_workplace "$parent"
mv "$app" "$workplace/" || fail "'$app' cannot be removed; $guarded"
rm -rf "$workplace" || fail "'$workplace' cannot be removed altogether; remove the rest by hand"
say "'$app' is removed"
tell_rest
