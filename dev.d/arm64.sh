# The slices that most Macs run: the extension's and the adapter's for arm64, under qemu.
# shellcheck shell=bash disable=SC2154 # root, logs, demo and called_from are dev's

arm64=$root/build/arm64
# Debian's packages for arm64 that the host and the loader are built and run with; what those depend
# on comes along.
arm64_packages=(
  libc6-dev libstdc++-12-dev libobjc-12-dev libgnustep-base1.28 libllvm19
  libbsd-dev libssl-dev libgmock-dev libcli11-dev nlohmann-json3-dev softhsm2
)

# apt-get for arm64, with a state of its own: the machine's packages stay as they are.
arm64_apt() {
  apt-get -o APT::Architecture=arm64 -o APT::Architectures::=arm64 \
    -o "APT::Architectures::=$(dpkg --print-architecture)" \
    -o Dir::State="$arm64/apt" -o Dir::State::status="$arm64/apt/status" -o Dir::Cache="$arm64/apt" \
    -o APT::Sandbox::User="$(id -un)" -o Debug::NoLocking=true "$@"
}

# Fetches the packages into build/arm64/apt/archives.
fetch_arm64() {
  mkdir -p "$arm64/apt/lists/partial" "$arm64/apt/archives/partial" &&
    : >"$arm64/apt/status" &&
    arm64_apt update &&
    arm64_apt install --yes --download-only --no-install-recommends "${arm64_packages[@]}" &&
    # Without what they depend on, such as a compiler for arm64.
    cd "$arm64/apt/archives" &&
    arm64_apt download libgnustep-base-dev "qemu-user-static:$(dpkg --print-architecture)"
}

# Makes the sysroot of what was fetched.
unpack_arm64() {
  local sysroot=$arm64/sysroot folder package link
  for folder in bin lib sbin; do
    mkdir -p "$sysroot/usr/$folder" && ln -s "usr/$folder" "$sysroot/$folder" || return 1
  done
  for package in "$arm64"/apt/archives/*_{all,arm64}.deb; do
    dpkg-deb --fsys-tarfile "$package" |
      tar -x -C "$sysroot" --keep-directory-symlink --no-same-owner --exclude='./usr/share/doc' \
        --exclude='./usr/share/locale' --exclude='./usr/share/man' || return 1
  done
  # Links to whole paths mean the sysroot's.
  find "$sysroot" -type l -lname '/*' | while IFS= read -r link; do
    ln -sfn "$sysroot$(readlink "$link")" "$link" || return 1
  done
}

# Of the emulators of all processors, that of arm64.
unpack_qemu() {
  dpkg-deb --fsys-tarfile "$arm64"/apt/archives/qemu-user-static_*.deb |
    tar -x -C "$arm64" --strip-components=3 ./usr/bin/qemu-aarch64-static
}

# Makes what the build and the run need, when it is missing or made of something else: the sysroot,
# the emulator, and the sources of LLVM's C++ library.
prepare_arm64() {
  fetch_headers
  local stamp=$arm64/made-of now
  now=$(echo "$headers_sha512 ${arm64_packages[*]}" && declare -f fetch_arm64 unpack_arm64)
  [ ! -e "$stamp" ] || [ "$(cat "$stamp")" != "$now" ] || return 0
  say "fetching Debian's packages for arm64 and qemu (160 MB)"
  rm -rf "$arm64"
  (quietly fetch-arm64 fetch_arm64)
  quietly unpack-arm64 unpack_arm64
  quietly unpack-qemu unpack_qemu
  mkdir "$arm64/libcxx-sources"
  quietly unpack-libcxx tar -xzmf "$headers_package" -C "$arm64/libcxx-sources" \
    package/libcxx package/libcxxabi package/libunwind
  rm -rf "$arm64/apt"
  echo "$now" >"$stamp"
}

# Writes the adapter's configuration, with a line more.
configure_arm64_adapter() {
  printf '%s\n' 'module = /usr/lib/softhsm/libsofthsm2.so' 'reader-name = Kelvrin Reader' "$1" \
    >"$arm64/run/KelvrinToken.appex/Contents/Resources/libpkcs11qarn_Lindel_PCSC.conf"
}

# A card, and the shipped extension over it: one folder for both processors, since the path of
# the module is that of this system's or of the sysroot's.
make_arm64_card() {
  rm -rf "$arm64/run"
  mkdir -p "$arm64/run/x86_64" "$arm64/run/arm64"
  quietly make-card tests/card/make-card "$arm64/run/card"
  cp -R "$macos_build/KelvrinToken.app/Contents/PlugIns/KelvrinToken.appex" "$arm64/run/"
  configure_arm64_adapter 'any-reader = yes' # SoftHSM's reader has another name
  echo "A message that only the card's owner can have signed." >"$arm64/run/message"
  openssl pkeyutl -encrypt -pubin -inkey "$arm64/run/card/card/rsa.pub.pem" \
    -in "$arm64/run/message" -out "$arm64/run/ciphertext"
}

# tokenhost over the shipped extension, on this processor or on arm64.
#   arm64_host x86_64|arm64 ARGUMENT...
arm64_host() {
  local processor=$1 run=()
  shift
  if [ "$processor" = arm64 ]; then
    run=("$arm64/qemu-aarch64-static" -L "$arm64/sysroot"
      -E "LD_PRELOAD=$arm64/platform/macho/libmacho.so"
      -E "LD_LIBRARY_PATH=$arm64/platform/macho/libcxx" "$arm64/bin/tokenhost")
  else
    run=(env "LD_PRELOAD=$root/build/release/platform/macho/libmacho.so"
      "$root/build/release/bin/tokenhost")
  fi
  SOFTHSM2_CONF=$arm64/run/card/softhsm2.conf "${run[@]}" \
    --bundle "$arm64/run/KelvrinToken.appex" --pin-file "$arm64/run/card/card/pin" \
    --log default --show-private "$@"
}

# Runs a command of tokenhost on both processors, each in its folder, and expects an exit status.
#   arm64_run NAME STATUS ARGUMENT...
arm64_run() {
  local name=$1 expected=$2 processor status
  shift 2
  for processor in x86_64 arm64; do
    status=0
    (cd "$arm64/run/$processor" &&
      arm64_host "$processor" "$@" >"$name.out" 2>"$name.log") || status=$?
    if [ "$status" -ne "$expected" ]; then
      tail -n 30 "$arm64/run/$processor/$name.log" >&2
      fail "tokenhost $* ended with $status on $processor"
    fi
  done
}

# Compares what was printed and logged on both, line by line in any order: SoftHSM orders its
# objects by where they lie in memory.
#   arm64_compare NAME
arm64_compare() {
  local kind
  for kind in out log; do
    diff <(sort "$arm64/run/x86_64/$1.$kind") <(sort "$arm64/run/arm64/$1.$kind") >&2 ||
      fail "$1 differs between x86_64 and arm64"
  done
  say "$1: the same on both, $(wc -l <"$arm64/run/arm64/$1.log") lines of log"
}

# Signs on both processors; OpenSSL verifies both signatures.
#   arm64_sign NAME KEY ALGORITHM PUBLIC-KEY
arm64_sign() {
  local processor
  arm64_run "$1" 0 sign --key "$2" --algorithm "$3" --in "$arm64/run/message" --out "$1.signature"
  for processor in x86_64 arm64; do
    quietly "verify-$1" openssl dgst -sha256 -verify "$arm64/run/card/card/$4" \
      -signature "$arm64/run/$processor/$1.signature" "$arm64/run/message"
  done
}

dev_arm64() {
  [ $# -eq 0 ] || fail "usage: ./dev arm64"
  dev_setup
  build_macos
  prepare_arm64
  build_preset release tokenhost macho
  build_preset arm64
  say "running the shipped files' slices for x86_64 and, under qemu, for arm64"
  make_arm64_card
  arm64_run list 0 list
  arm64_compare list
  arm64_sign rsa "$rsa_key" RSASignatureMessagePKCS1v15SHA256 rsa.pub.pem
  arm64_compare rsa
  arm64_sign ecdsa "$ec_key" ECDSASignatureMessageX962SHA256 ec.pub.pem
  # No two signatures of ECDSA are the same, nor all of the same length.
  sed -i -E 's/((sigLen|signature len|signature bytes) +)[0-9A-F]+$/\1.../' \
    "$arm64"/run/{x86_64,arm64}/ecdsa.log
  arm64_compare ecdsa
  arm64_run decrypt 0 decrypt --key "$rsa_key" --algorithm RSAEncryptionPKCS1 \
    --in "$arm64/run/ciphertext" --out plaintext
  arm64_compare decrypt
  cmp "$arm64/run/message" "$arm64/run/arm64/plaintext" ||
    fail "the plaintext differs from the message"
  # What the adapter says of it passes its functions as an exception.
  configure_arm64_adapter 'any-reader = maybe'
  arm64_run refusal 1 list
  arm64_compare refusal
  grep -q 'write yes or no' "$arm64/run/arm64/refusal.log" || fail "nothing names the wrong line"
  echo "arm64: extension and adapter listed, signed (RSA and ECDSA, verified by OpenSSL) and" \
    "decrypted, and refused a wrong configuration; output and log are those of x86_64."
}
