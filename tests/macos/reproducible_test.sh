#!/usr/bin/env bash
# Builds the bundle and the download once more, in another folder and as another user might, and
# compares what comes out with what is about to be shipped, byte by byte.
#   reproducible_test.sh SOURCE BUILD
# BUILD is where ./dev macos has left the bundle.
set -euo pipefail
[ $# -eq 2 ] || { echo "usage: reproducible_test.sh SOURCE BUILD" >&2; exit 2; }
source=$1 shipped=$2
if [ ! -e "$shipped/KelvrinToken.zip" ]; then
  echo "there is no KelvrinToken.zip in $shipped: run ./dev macos first" >&2
  exit 1
fi
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# Takes out of a build folder what it is for.
#   take BUILD RESULT
take() {
  mkdir -p "$2/bin"
  cp -R "$1/KelvrinToken.app" "$1/KelvrinToken.zip" "$2/"
  cp "$1/bin/modulecheck" "$1/bin/libkelvrin_adapter.dylib" "$2/bin/"
}

# A copy of the sources.
copy=$folder/with-a-path/that-is-a-good-deal/longer-than-where/the-first-build/was-made
mkdir -p "$copy"
(cd "$source" && git ls-files -z -co --exclude-standard |
  while IFS= read -r -d '' file; do [ ! -e "$file" ] || printf '%s\0' "$file"; done |
  tar -cf - --null -T -) | tar -xf - -C "$copy"

# Neither the place nor the time zone, the language or a user's wishes for zip may leave a trace.
export TZ=Asia/Kathmandu LC_ALL=C ZIPOPT=-0
export CCACHE_DISABLE=1 # what a cache has kept is the same in any case
"$copy/dev" macos >"$folder/log" 2>&1 ||
  { tail -n 60 "$folder/log" >&2; echo "building in $copy failed" >&2; exit 1; }

take "$copy/build/macos" "$folder/again"
take "$shipped" "$folder/shipped"
diff -r "$folder/again" "$folder/shipped" || {
  echo "$shipped is not what the sources make elsewhere;" \
    "was it built with options, or changed since?" >&2
  exit 1
}
