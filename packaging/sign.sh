#!/usr/bin/env bash
# Signs an application from the inside out: libraries, modulecheck, extension, application.
set -euo pipefail
# shellcheck source=packaging/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

usage() {
  cat <<'EOT'
usage: sign.sh --app APP --identity ID [--entitlements FILE] [--keychain KEYCHAIN]

Signs every library in the extension, APP's modulecheck, the extension and APP, each of these two
with its entitlements, in this order, and has codesign verify the whole.
  --identity ID         name or SHA-1 of a code signing identity, as
                        'security find-identity -p codesigning' shows it; "Developer ID
                        Application: ..." to give the application to others. "-" signs for this Mac
                        alone, for a test.
  --entitlements FILE   the extension's; default: resources/KelvrinToken.entitlements
  --keychain KEYCHAIN   where to look for the identity

All libraries get the same identity, a card maker's too: the hardened runtime lets the extension
and modulecheck load no others. If something fails, APP stays as it was.
EOT
}

app='' identity='' keychain=''
entitlement_files=$(dirname "${BASH_SOURCE[0]}")/../resources
entitlements=$entitlement_files/KelvrinToken.entitlements
application_entitlements=$entitlement_files/KelvrinTokenApplication.entitlements
while [ $# -gt 0 ]; do
  case $1 in
    --app) need_value $# "$1" "${2-}"; app=$2; shift 2 ;;
    --identity) need_value $# "$1" "${2-}"; identity=$2; shift 2 ;;
    --entitlements) need_value $# "$1" "${2-}"; entitlements=$2; shift 2 ;;
    --keychain) need_value $# "$1" "${2-}"; keychain=$2; shift 2 ;;
    --help) usage; exit 0 ;;
    *) wrong_usage "unknown argument '$1'" ;;
  esac
done
[ -n "$app" ] || wrong_usage "--app is missing"
[ -n "$identity" ] || wrong_usage "--identity is missing"

# Prints the libraries, which are signed before the programs, each path with a NUL behind it: what lies inside comes
# before what holds it.
find_code() {
  local folder path
  for folder in "$extension/Contents/Frameworks" "$resources" "$app/Contents/Frameworks"; do
    [ -d "$folder" ] || continue
    find "$folder" -depth \( -type f -o -type d -name '*.framework' -o -type d -name '*.bundle' \) \
      -print0 | while IFS= read -r -d '' path; do
      if [ -d "$path" ] || is_code "$path"; then printf '%s\0' "$path"; fi
    done
  done
}

# Refuses libraries that are none.
check_libraries() {
  local path
  for path in "$extension/Contents/Frameworks" "$app/Contents/Frameworks"; do
    [ ! -e "$path" ] || [ -d "$path" ] ||
      fail "'${path#"$app/"}' is a file; make it a folder, and put the library there into it"
  done
  while IFS= read -r -d '' path; do
    is_code "$path" || fail "'${path##*/}' in the extension is not a library for macOS"
  done < <(find "$resources" -type f \( -name '*.dylib' -o -name '*.so' \) -print0)
}

# Whether the adapter has its module; says what it would miss.
has_module() {
  local module
  [ -f "$resources/$adapter.conf" ] || return 0
  module=$(conf_value "$resources/$adapter.conf" module)
  if [[ $module == /* ]]; then
    note "$adapter.conf names '$module': the sandbox lets the extension load nothing from there"
    return 1
  elif [ ! -f "$resources/$module" ]; then
    note "$adapter.conf names '$module', which is not in the extension; run configure.sh first"
    return 1
  fi
}

# sign PATH [OPTION...]
sign() {
  local path=$1
  shift
  say "signing ${path#"$workplace/"}"
  codesign --force --sign "$identity" ${keychain:+--keychain "$keychain"} "$@" "$path" ||
    fail "codesign failed for '${path#"$workplace/"}', see above; the application is as it was"
}

need_tool codesign
need_xcode_tool codesign_allocate # codesign runs it to make room for a signature
find_app "$app"
[ -f "$entitlements" ] || fail "there is no file '$entitlements' with the extension's entitlements"
for right in com.apple.security.app-sandbox com.apple.security.smartcard; do
  grep -q "<key>$right</key>" "$entitlements" ||
    fail "'$entitlements' lacks $right, without which the extension cannot work"
done
entitlements=$(cd -- "$(dirname -- "$entitlements")" && pwd -P)/${entitlements##*/}
check_libraries
if [ "$identity" = - ]; then
  # The hardened runtime loads libraries of its own team alone, and here there is no team.
  library_seal=(--timestamp=none)
  program_seal=(--timestamp=none)
else
  need_identity "$identity" codesigning "$keychain"
  library_seal=(--timestamp)
  program_seal=(--timestamp --options runtime)
fi

copy_app
# What downloads and file managers leave on files cannot be signed.
if command -v xattr >/dev/null 2>&1; then
  xattr -cr "$app" || fail "xattr cannot clear the files' attributes; the application is as it was"
fi
find_code >"$workplace/code"
while IFS= read -r -d '' path <&3; do
  sign "$path" "${library_seal[@]}"
done 3<"$workplace/code"
sign "$app/Contents/MacOS/modulecheck" "${program_seal[@]}"
sign "$extension" "${program_seal[@]}" --entitlements "$entitlements"
sign "$app" "${program_seal[@]}" --entitlements "$application_entitlements"
codesign --verify --deep --strict --verbose=2 "$app" ||
  fail "codesign does not accept its own signatures, see above; the application is as it was"
replace_by_copy
if has_module; then
  say "'$app' is signed and verified"
else
  say "'$app' is signed and verified, but its extension will find no module, see above"
fi
