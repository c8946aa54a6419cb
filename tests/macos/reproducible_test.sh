#!/usr/bin/env bash
# Builds the bundle twice, in folders whose paths differ in length, and compares what came out, byte
# by byte.
#   reproducible_test.sh SOURCE SDK COMPARE     COMPARE says what differs between two folders
set -euo pipefail
[ $# -eq 3 ] || { echo "usage: reproducible_test.sh SOURCE SDK COMPARE" >&2; exit 2; }
source=$1 sdk=$2 compare=$3
if [ ! -e "$sdk/usr/lib/libSystem.tbd" ]; then
  echo "there is no SDK in $sdk: run ./dev macos first" >&2
  exit 1
fi
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
# The compiler leaves empty folders in there.
mkdir "$folder/tmp"
export TMPDIR=$folder/tmp

# Builds a copy of the sources, beside a copy of the SDK. What the bundle holds follows FOLDER.
#   build FOLDER
build() {
  mkdir -p "$1/build"
  (cd "$source" && git ls-files -z -co --exclude-standard |
    while IFS= read -r -d '' file; do [ ! -e "$file" ] || printf '%s\0' "$file"; done |
    tar -cf - --null -T -) | tar -xf - -C "$1"
  cp -a "$sdk" "$1/build/macos-sdk"
  (
    cd "$1"
    cmake --preset macos -DKELVRIN_MACOS_SDK="$1/build/macos-sdk" &&
      cmake --build --preset macos
  ) >"$1.log" 2>&1 || { tail -n 60 "$1.log" >&2; echo "building in $1 failed" >&2; return 1; }
  mkdir "$1.result"
  mv "$1/build/macos/KelvrinToken.app" "$1.result/"
  mkdir "$1.result/bin"
  mv "$1/build/macos/bin/modulecheck" "$1/build/macos/bin/libkelvrin_adapter.dylib" \
    "$1.result/bin/"
  rm -rf "$1"
}

short=$folder/a
long=$folder/another/with-a-path/that-is-a-good-deal/longer-than-the-first
build "$short"
# Neither the place nor the time zone nor the language may leave a trace.
export TZ=Asia/Kathmandu LC_ALL=C
build "$long"
"$compare" "$short.result" "$long.result"
