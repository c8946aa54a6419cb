# Does a module fit, and a bundle over it.
# shellcheck shell=bash disable=SC2154 # root, logs, demo and called_from are dev's

# Standard output is modulecheck's own, and files are named as the caller sees them.
dev_modulecheck() {
  { dev_setup && build_preset release modulecheck; } >&2
  cd "$called_from" || exit
  "$root/build/release/bin/modulecheck" "$@"
}

# Builds beside the other builds, whose bundle stays what it is.
dev_bundle() {
  local usage="usage: ./dev bundle MODULE [-DKELVRIN_READER_NAME=NAME] [-DOPTION=VALUE ...]"
  [ $# -gt 0 ] || fail "$usage"
  local module=$1 build=$root/build/bundle option
  shift
  for option in "$@"; do
    case $option in -D*=*) ;; *) fail "$usage" ;; esac
  done
  case $module in /*) ;; *) module=$called_from/$module ;; esac
  [ -f "$module" ] || fail "there is no file $module"
  dev_setup
  say "building the bundle over $module"
  quietly configure-bundle cmake --preset release -B "$build" "-DKELVRIN_MODULE=$module" "$@"
  quietly build-bundle cmake --build "$build" --target bundle tokenhost
  echo "bundle: build/bundle/KelvrinToken.appex; list the card's items with" \
    "build/bundle/bin/tokenhost --bundle build/bundle/KelvrinToken.appex list"
}
