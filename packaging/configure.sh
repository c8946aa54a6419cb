#!/usr/bin/env bash
# Puts a PKCS#11 module behind the adapter of a built application, and names the reader.
set -euo pipefail
# shellcheck source=packaging/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

usage() {
  cat <<'EOT'
usage: configure.sh --app APP [--module FILE] [--reader NAME] [--conf FILE]

Changes what the extension in APP uses; what is not given stays as it is:
  --module FILE   PKCS#11 module, a library for macOS; copied into the extension and put behind
                  the adapter. A module from an earlier run is removed.
  --reader NAME   text to find in the reader's name, at most 64 bytes; "" for any reader, when
                  there is only one
  --conf FILE     further lines for the adapter's configuration, such as 'reserved = ...'; they
                  replace those of an earlier run

A signature does not survive this: sign the application afterwards.
EOT
}

app='' module='' reader='' conf='' has_reader=no
while [ $# -gt 0 ]; do
  case $1 in
    --app) need_value $# "$1" "${2-}"; app=$2; shift 2 ;;
    --module) need_value $# "$1" "${2-}"; module=$2; shift 2 ;;
    --conf) need_value $# "$1" "${2-}"; conf=$2; shift 2 ;;
    --reader)
      [ $# -ge 2 ] || wrong_usage "$1 needs a value"
      reader=$2 has_reader=yes
      shift 2 ;;
    --help) usage; exit 0 ;;
    *) wrong_usage "unknown argument '$1'" ;;
  esac
done
[ -n "$app" ] || wrong_usage "--app is missing"
[ -n "$module$conf" ] || [ "$has_reader" = yes ] ||
  wrong_usage "nothing to change: give --module, --reader or --conf"

# --- what a line of the configuration can carry --------------------------------------------------

# check_text WHAT TEXT
check_text() {
  (LC_ALL=C; [[ $2 != *[[:cntrl:]]* ]]) || fail "$1 has a line end or another control character"
  (LC_ALL=C; [[ $2 != ' '* && $2 != *' ' ]]) || fail "$1 begins or ends with a blank"
  printf '%s' "$2" | iconv -f UTF-8 -t UTF-8 >/dev/null 2>&1 || fail "$1 is not UTF-8"
}

check_reader() {
  check_text "the reader's name" "$reader"
  (LC_ALL=C; [ ${#reader} -le 64 ]) ||
    fail "the reader's name has more than 64 bytes; a part of it is enough"
}

# --- the module ----------------------------------------------------------------------------------

lower() { printf '%s' "$1" | LC_ALL=C tr '[:upper:]' '[:lower:]'; }

# Whether a name belongs to the extension itself. Case counts for nothing, as on most Macs' disks.
is_own_name() {
  local name own
  name=$(lower "$1")
  for own in config.plist {de,en}.lproj "$adapter".{dylib,conf} "$second_name.dylib"; do
    [ "$name" != "$(lower "$own")" ] || return 0
  done
  return 1
}

check_module() {
  local name=${module##*/}
  [ -e "$module" ] || fail "there is no module '$module'"
  [ -f "$module" ] || fail "'$module' is not a file; name the library in it"
  [ -r "$module" ] || fail "'$module' cannot be read"
  check_text "the module's file name" "$name"
  ! is_own_name "$name" ||
    fail "the extension has a file '$name' of its own; copy the module to another name"
  is_code "$module" ||
    fail "'$module' is not a library for macOS; take the module that its maker offers for the Mac"
  ! cmp -s "$module" "$resources/$adapter.dylib" ||
    fail "'$module' is the adapter itself; name the module to put behind it"
}

# --- the adapter's configuration -----------------------------------------------------------------

own_lines='^[[:space:]]*(module|reader-name)[[:space:]]*=' # those that this script writes

# Prints the lines of a configuration that are not this script's.
further_lines() {
  conf_lines "$1" |
    LC_ALL=C sed -E "/^[[:space:]]*(#|\$)/d;/$own_lines/d"
}

check_conf() {
  local lines
  [ -e "$conf" ] || fail "there is no file '$conf'"
  if [ ! -f "$conf" ] || [ ! -r "$conf" ]; then fail "'$conf' is not a file that can be read"; fi
  [ "$(wc -c <"$conf")" -le 60000 ] || fail "'$conf' has more than 60000 bytes"
  [ "$(LC_ALL=C tr -d '\t\r\n' <"$conf" | LC_ALL=C tr -dc '[:cntrl:]' | wc -c)" -eq 0 ] ||
    fail "'$conf' has control characters; save it as plain text"
  lines=$(conf_lines "$conf")
  ! grep -qE "$own_lines" <<<"$lines" ||
    fail "'$conf' has a line for 'module' or 'reader-name', which this script writes; remove it"
  lines=$(further_lines "$conf")
  [ -z "$lines" ] || ! grep -qv = <<<"$lines" ||
    fail "'$conf' has a line that is not 'key = value'"
}

# write_conf OLD NEW: writes the configuration with what was given, and the rest as in OLD.
write_conf() {
  local name lines reader_name=$reader
  name=${module##*/}
  [ -n "$module" ] || name=$(conf_value "$1" module)
  [ -n "$name" ] || fail "'${1##*/}' names no module; give --module"
  [ "$has_reader" = yes ] || reader_name=$(conf_value "$1" reader-name)
  lines=$(further_lines "${conf:-$1}")
  {
    printf '%s\n' "# The PKCS#11 module that this adapter stands in front of; a relative path" \
      "# starts at this folder." "module = $name" "" \
      "# The name under which the extension finds the slot: readerName in config.plist."
    if [ -n "$reader_name" ]; then
      printf 'reader-name = %s\n' "$reader_name"
    else
      printf '# none\n'
    fi
    [ -z "$lines" ] || printf '%s\n' "" "$lines"
  } >"$2"
}

# --- config.plist --------------------------------------------------------------------------------

# write_plist FILE: sets readerName. Without Apple's plutil the file is written anew, which is right
# as long as the name is all there is in it.
write_plist() {
  if [ "$(uname -s)" = Darwin ] && command -v plutil >/dev/null 2>&1; then
    plutil -replace readerName -string "$reader" "$1" || fail "plutil cannot change config.plist"
    plutil -lint -s "$1" || fail "config.plist is no longer a property list"
    return
  fi
  if [ "$(LC_ALL=C grep -c '<key>' "$1")" != 1 ] || ! grep -q '<key>readerName</key>' "$1"; then
    fail "config.plist has more in it than readerName; change it on a Mac, with plutil"
  fi
  local text
  text=$(printf '%s' "$reader" | LC_ALL=C sed 's/&/\&amp;/g;s/</\&lt;/g;s/>/\&gt;/g')
  printf '%s\n' '<?xml version="1.0" encoding="UTF-8"?>' \
    '<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN"' \
    '  "http://www.apple.com/DTDs/PropertyList-1.0.dtd">' \
    '<plist version="1.0">' '<dict>' '	<key>readerName</key>' "	<string>$text</string>" \
    '</dict>' '</plist>' >"$1"
}

# --- all of it -----------------------------------------------------------------------------------

find_app "$app"
[ -f "$resources/config.plist" ] || fail "the extension has no config.plist"
for name in "$adapter" "$second_name"; do
  [ -f "$resources/$name.dylib" ] || fail "the extension has no $name.dylib"
done
has_adapter=yes # unless a module that needs none lies in its place, without configuration
[ -f "$resources/$adapter.conf" ] || has_adapter=no
[ "$has_adapter" = yes ] || [ -z "$module$conf" ] ||
  fail "the extension has no adapter: it was built with a module that needs none"
[ -z "$module" ] || check_module
[ "$has_reader" = no ] || check_reader
[ -z "$conf" ] || check_conf

if [ -n "$module" ]; then
  old=$(conf_value "$resources/$adapter.conf" module)
  name=${module##*/}
  # A library that the configuration does not name is one from before a build, which names none.
  [ ! -e "$resources/$name" ] || { [ -f "$resources/$name" ] && is_code "$resources/$name"; } ||
    fail "the extension has another file '$name'; copy the module to another name"
  module=$(cd -- "$(dirname -- "$module")" && pwd -P)/$name
fi

copy_app
if [ -n "$module" ]; then
  cp "$module" "$workplace/module" || fail "'$module' cannot be copied"
  chmod 755 "$workplace/module"
  if [[ $old != */* ]] && [ -f "$resources/$old" ] && ! is_own_name "$old"; then
    rm -f "$resources/$old"
  fi
  mv "$workplace/module" "$resources/$name" || fail "'$name' cannot be put into the extension"
fi
if [ "$has_adapter" = yes ]; then
  write_conf "$resources/$adapter.conf" "$workplace/conf"
  cat "$workplace/conf" >"$resources/$adapter.conf"
fi
[ "$has_reader" = no ] || write_plist "$resources/config.plist"
replace_by_copy

[ -z "$module" ] || say "module: $name"
[ "$has_reader" = no ] || say "reader: ${reader:-any}"
say "now sign the application, again if it was signed before: sign.sh --app '$app' --identity ID"
