#!/usr/bin/env bash
# Builds everything and runs every test: the portable code natively (ASan, UBSan),
# the Windows library, its dialogs and tools under Wine in a virtual display.
source "$(dirname "$0")/common.sh"

install_packages
build_native
build_windows

echo "== native tests"
ctest --test-dir "$BUILD/native" --output-on-failure -j "$JOBS"

echo "== fuzz targets"
bash "$ROOT/tests/fuzz/run.sh" "$BUILD/fuzz" 20

echo "== mutation check (native)"
bash "$ROOT/scripts/mutants.sh" --native

echo "== Windows tests (Wine)"
ensure_display
trap 'stop_wine; stop_display' EXIT
prepare_wine
# Dialog tests share one display and one desktop: run them one at a time.
ctest --test-dir "$BUILD/win" --output-on-failure --timeout 120
