#!/usr/bin/env bash
# Builds the bundle and the download twice, in folders whose paths differ in length, and compares
# what came out, byte by byte: with each other, and with what is about to be shipped.
#   reproducible_test.sh SOURCE BUILD
# BUILD is where ./dev macos has left the bundle.
set -euo pipefail
[ $# -eq 2 ] || { echo "usage: reproducible_test.sh SOURCE BUILD" >&2; exit 2; }
source=$1 shipped=$2
if [ ! -e "$shipped/KelvrinToken.zip" ]; then
  echo "there is no KelvrinToken.zip in $shipped: run ./dev macos first" >&2
  exit 1
fi
export CCACHE_DISABLE=1 # what a cache has kept is the same in any case
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# Takes out of a build folder what it is for.
#   take BUILD RESULT
take() {
  mkdir -p "$2/bin"
  cp -R "$1/KelvrinToken.app" "$1/KelvrinToken.zip" "$2/"
  cp "$1/bin/modulecheck" "$1/bin/libkelvrin_adapter.dylib" "$2/bin/"
}

# Builds a copy of the sources in FOLDER, with a copy of the SDK, which takes a minute to make.
#   build FOLDER
build() {
  mkdir -p "$1/build"
  (cd "$source" && git ls-files -z -co --exclude-standard |
    while IFS= read -r -d '' file; do [ ! -e "$file" ] || printf '%s\0' "$file"; done |
    tar -cf - --null -T -) | tar -xf - -C "$1"
  cp -a "$shipped/../macos-sdk" "$1/build/macos-sdk"
  "$1/dev" macos >"$1.log" 2>&1 ||
    { tail -n 60 "$1.log" >&2; echo "building in $1 failed" >&2; return 1; }
  take "$1/build/macos" "$1.result"
  rm -rf "$1"
}

short=$folder/a
long=$folder/another/with-a-path/that-is-a-good-deal/longer-than-the-first
build "$short"
take "$shipped" "$folder/shipped"
diff -r "$short.result" "$folder/shipped" || {
  echo "$shipped is not what the sources make; was it built with options, or changed since?" >&2
  exit 1
}
# Neither the place nor the time zone, the language or a user's wishes for zip may leave a trace.
export TZ=Asia/Kathmandu LC_ALL=C ZIPOPT=-0
build "$long"
diff -r "$short.result" "$long.result"
