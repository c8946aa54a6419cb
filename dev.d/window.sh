# The application's window, over the demo's card.
# shellcheck shell=bash disable=SC2154 # root, logs, demo and called_from are dev's

build_window() {
  dev_setup
  [ -e "$demo/card" ] || fail "there is no demo card yet: run ./dev demo first"
  build_preset release window
}

# Leaves pictures of the window, after a trial, and of the report.
#   take_pictures FOLDER LANGUAGE
take_pictures() {
  local folder
  folder=$(mktemp -d) # the report shows where the application lies
  mkdir -p "$1"
  ln -s "$demo/card" "$folder/card"
  LANGUAGES=$2 quietly pictures timeout 300 \
    xvfb-run -a build/release/bin/window "$folder" --pictures "$1"
  rm -rf "$folder"
}

# Opens the window; without a display it leaves the pictures. With an option, prints what that says.
dev_window() {
  build_window
  if [ $# -gt 0 ]; then
    local status=0
    build/release/bin/window "$demo" "$@" 2>"$logs/window.log" || status=$?
    # The reason is said last, after what the extension prints.
    [ "$status" -eq 0 ] || tail -n 3 "$logs/window.log" >&2
    return "$status"
  fi
  if [ -z "${DISPLAY:-}" ]; then
    say "there is no display; taking pictures"
    take_pictures build/pictures "${LANGUAGES:-${LANG:-en}}"
    say "build/pictures: window-ready.png, window-report.png"
    return
  fi
  say "opening the window; its PIN is given as a person would (it is $(cat "$demo/card/card/pin"))"
  build/release/bin/window "$demo" >"$logs/window.log" 2>&1
}

# Takes the pictures of the documentation anew.
dev_pictures() {
  build_window
  take_pictures docs/pictures en
  say "docs/pictures: window-ready.png, window-report.png"
}
