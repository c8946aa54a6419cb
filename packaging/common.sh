# What the packaging scripts share. They run on bash 3.2, which is what macOS has, and with the
# tools of macOS or of Linux.
# shellcheck shell=bash

program=${0##*/}
# The adapter's name, and the second one that leads to it.
# shellcheck disable=SC2034 # used by the scripts
adapter=libpkcs11qarn_Lindel_PCSC second_name=libpkcs11qarn_Vumo_PCSC
unset CDPATH

say() { printf '%s\n' "== $*"; }
note() { printf '%s\n' "$program: $*" >&2; }

fail() {
  note "$*"
  exit 1
}

wrong_usage() {
  note "$*"
  printf '%s\n' "Run $program --help for more." >&2
  exit 2
}

# Refuses an option without a value: need_value COUNT OPTION VALUE, where COUNT is what is left of
# the command line.
need_value() {
  [ "$1" -ge 2 ] || wrong_usage "$2 needs a value"
  [ -n "$3" ] || wrong_usage "the value of $2 is empty"
}

# need_tool NAME: refuses to begin without one of the system's tools.
need_tool() {
  command -v "$1" >/dev/null 2>&1 ||
    fail "there is no '$1' here; it is part of macOS: run this on a Mac"
}

# need_xcode_tool NAME: the same for one that comes with Xcode and is run by xcrun.
need_xcode_tool() {
  command -v xcrun >/dev/null 2>&1 ||
    fail "there is no 'xcrun' here, which runs '$1'; run this on a Mac with Xcode"
  xcrun --find "$1" >/dev/null 2>&1 ||
    fail "xcrun finds no '$1'; 'xcode-select --install' installs the command line tools; version 13" \
      "or newer is needed"
}

# find_app PATH: sets app, extension and resources, as absolute paths.
find_app() {
  [ -e "$1" ] || fail "there is no application '$1'"
  [ -d "$1" ] || fail "'$1' is a file; name the application's folder, KelvrinToken.app"
  app=$(cd -- "$1" && pwd -P) || fail "'$1' cannot be entered"
  extension=$app/Contents/PlugIns/KelvrinToken.appex
  resources=$extension/Contents/Resources
  if [ ! -f "$extension/Contents/MacOS/KelvrinToken" ] || [ ! -d "$resources" ]; then
    fail "'$1' is not the application: it has no complete Contents/PlugIns/KelvrinToken.appex"
  fi
}

# plist_text FILE KEY: prints a text from a property list in XML; fails without it.
plist_text() {
  local text
  local value='s/^[[:space:]]*<string>\(.*\)<\/string>.*/\1/p'
  text=$(LC_ALL=C sed -n "/<key>$2<\\/key>/{n;$value;}" "$1" 2>/dev/null | sed -n 1p) || text=
  [ -n "$text" ] || fail "'$1' has no text for $2"
  printf '%s\n' "$text"
}

# Whether a file holds code for macOS: it begins as Mach-O or universal files do.
is_code() {
  local magic
  magic=$(LC_ALL=C od -An -tx1 -N4 "$1" | LC_ALL=C tr -d ' \n')
  case $magic in
    cffaedfe | cefaedfe | feedfacf | feedface | cafebabe | cafebabf) return 0 ;;
    *) return 1 ;;
  esac
}

# Prints the adapter's configuration without a byte order mark.
conf_lines() {
  LC_ALL=C awk 'NR == 1 { sub(/^\357\273\277/, "") } { print }' "$1"
}

# conf_value FILE KEY: prints a key's value in the adapter's configuration.
conf_value() {
  conf_lines "$1" | LC_ALL=C sed -n "s/^[[:space:]]*$2[[:space:]]*=[[:space:]]*//p" |
    LC_ALL=C sed 's/[[:space:]]*$//'
}

# --- changes that are made whole or not at all ---------------------------------------------------

# What to say when the system forbids what the file's modes allow.
guarded="if your terminal was not permitted to, allow it in System Settings under Privacy & Security,\
 App Management (macOS 13 and newer)"

workplace= # folder for what is being made; removed at the end
original=  # what the copy is to replace

# make_workplace FOLDER: makes a folder of our own in it.
make_workplace() {
  [ -w "$1" ] || fail "'$1' cannot be written to; use sudo, or a folder of your own"
  workplace=$(mktemp -d "$1/.kelvrin.XXXXXX") || fail "no folder can be made in '$1'"
  trap clean_up EXIT
}

clean_up() {
  # Ended between the two moves of replace_by_copy.
  if [ -n "$original" ] && [ ! -e "$original" ] && [ -e "$workplace/before" ]; then
    mv "$workplace/before" "$original"
  fi
  rm -rf "$workplace"
}

# copy_app: copies the application to a place beside it, and has app, extension and resources name
# the copy.
copy_app() {
  local name=${app##*/}
  [ -w "$app" ] || fail "'$app' cannot be changed; use sudo, or a copy of your own"
  original=$app
  make_workplace "${app%/*}"
  cp -pR "$app" "$workplace/$name" || fail "'$app' cannot be copied"
  # Libraries often come read-only, and then nothing of them can be changed.
  chmod -R u+w "$workplace/$name" || fail "the copy of '$app' cannot be made writable"
  find_app "$workplace/$name"
}

# replace_by_copy: has the copy take the application's place.
replace_by_copy() {
  mv "$original" "$workplace/before" || fail "'$original' cannot be replaced; $guarded"
  mv "$app" "$original" || fail "'$original' cannot be replaced; it stays as it was"
  find_app "$original"
}

# --- identities, signatures, Apple's notary service ----------------------------------------------

# need_identity ID POLICY KEYCHAIN: refuses an identity that no keychain has. KEYCHAIN may be empty.
need_identity() {
  local found
  need_tool security
  found=$(security find-identity -p "$2" ${3:+"$3"}) || fail "security cannot list the identities"
  if ! grep -qiF -e "$1" <<<"$found"; then
    note "there is no identity '$1' here; there are:"
    grep -E '^ *[0-9]+\) ' <<<"$found" | LC_ALL=C sort -u >&2 || printf '  none\n' >&2
    exit 1
  fi
}

# need_signed_app: refuses an application that is not signed, or by whom the notary service would
# refuse it.
need_signed_app() {
  local display
  codesign --verify --deep --strict "$app" ||
    fail "'$app' is not signed, or was changed since; run sign.sh first"
  display=$(codesign --display --verbose=2 "$app" 2>&1) || fail "codesign cannot read '$app'"
  if grep -q '^Signature=adhoc' <<<"$display"; then
    fail "'$app' is signed for this machine only; run sign.sh with a Developer ID identity"
  fi
  grep -q '^Authority=Developer ID Application' <<<"$display" ||
    fail "'$app' is not signed by a Developer ID Application identity; run sign.sh with one"
}

# json_text KEY TEXT: prints the last value of a key.
json_text() {
  LC_ALL=C sed -n 's/.*"'"$1"'"[[:space:]]*:[[:space:]]*"\([^"]*\)".*/\1/p' <<<"$2" | tail -n 1
}

# notarise FILE PROFILE: has Apple's notary service look at a file, and waits for its answer.
notarise() {
  local answer status id
  say "sending ${1##*/} to the notary service; this takes minutes"
  # The tool may fail because the service refused: the answer counts, where there is one.
  answer=$(xcrun notarytool submit "$1" --keychain-profile "$2" --wait --output-format json) || true
  status=$(json_text status "$answer")
  [ -n "$status" ] ||
    fail "notarytool gave no answer; 'xcrun notarytool store-credentials $2' makes a missing profile"
  if [ "$status" != Accepted ]; then
    id=$(json_text id "$answer")
    if [ -n "$id" ]; then xcrun notarytool log "$id" --keychain-profile "$2" >&2 || true; fi
    fail "the notary service did not accept ${1##*/}: $status"
  fi
}

# staple FILE TYPE: fastens the service's ticket to a file, and asks the system whether it takes the
# file. TYPE is spctl's: execute or install.
staple() {
  xcrun stapler staple "$1" || fail "stapler cannot fasten the ticket to '$1'"
  xcrun stapler validate "$1" || fail "the ticket of '$1' is not valid"
  spctl --assess --type "$2" --verbose "$1" || fail "the system would refuse '$1'"
}
