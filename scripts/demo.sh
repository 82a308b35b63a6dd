#!/usr/bin/env bash
# Builds the library and runs the demo on the simulated card. With a display, a person
# uses the prompts; without one, a scripted user answers them and every dialog is saved
# as a PNG under build/win/screenshots/.
source "$(dirname "$0")/common.sh"

install_packages
build_windows

mode=--interactive
if [ -z "${DISPLAY:-}" ] || [ "${CVPIN_FORCE_XVFB:-0}" = 1 ]; then mode=--scripted; fi
ensure_display
trap 'stop_wine; stop_display' EXIT
prepare_wine
mkdir -p "$BUILD/win/screenshots"
cd "$BUILD/win/bin"
/usr/lib/wine/wine64 cvpindemo.exe "$mode" --shots 'Z:'"$BUILD/win/screenshots" "$@"
