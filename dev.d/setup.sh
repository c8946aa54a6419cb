# Installs what the build and the tests need.
# shellcheck shell=bash disable=SC2154 # root, logs, demo and called_from are dev's

packages=(
  clang-19 clang-format-19 clang-tidy-19 clang-tools-19 libclang-rt-19-dev lld-19 llvm-19 llvm-19-dev
  libc++-19-dev ca-certificates curl python3 zip
  cmake ninja-build pkg-config python3-yaml shellcheck yamllint
  g++ libobjc-12-dev libgnustep-base-dev
  libbsd-dev libp11-kit-dev libssl-dev
  libgtest-dev libgmock-dev libcli11-dev nlohmann-json3-dev
  libgnustep-gui-dev gnustep-back0.29-cairo fonts-dejavu-core xvfb xauth openssh-client
  gnutls-bin opensc openssl softhsm2
  libnss3-tools p11-kit p11-kit-modules
  libbenchmark-dev libgnutls28-dev libengine-pkcs11-openssl
)

dev_setup() {
  if [ "$(uname -s)" = Darwin ]; then
    fail "this command needs Debian 12; on macOS there are ./dev macos and ./dev mac-check"
  fi
  command -v apt-get >/dev/null || fail "no apt-get here; these packages are needed: ${packages[*]}"
  local missing=() package
  for package in "${packages[@]}"; do
    [ "$(dpkg-query -W -f '${db:Status-Abbrev}' "$package" 2>/dev/null)" = "ii " ] ||
      missing+=("$package")
  done
  [ ${#missing[@]} -gt 0 ] || return 0
  say "installing ${missing[*]}"
  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || fail "run as root, or install sudo, to install: ${missing[*]}"
    as_root=(sudo)
  fi
  quietly apt-update "${as_root[@]}" apt-get -o Acquire::Retries=3 update
  quietly apt-install "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get -o Acquire::Retries=3 install -y --no-install-recommends "${missing[@]}"
}
