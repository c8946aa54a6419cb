# Configures and builds a preset.
# shellcheck shell=bash disable=SC2154 # root, logs, demo and called_from are dev's

# build_preset PRESET [TARGET...]
build_preset() {
  local preset=$1
  shift
  local targets=()
  [ $# -eq 0 ] || targets=(--target "$@")
  say "building ($preset)"
  quietly "configure-$preset" cmake --preset "$preset"
  quietly "build-$preset" cmake --build --preset "$preset" "${targets[@]}"
}
