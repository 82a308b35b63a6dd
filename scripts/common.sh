# Shared by demo.sh and test.sh: installs what the build needs, builds both trees,
# and prepares a private Wine prefix with a display. Source it; do not run it.
set -euo pipefail

ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
BUILD="$ROOT/build"
JOBS=$(nproc 2>/dev/null || echo 2)

DEB_PACKAGES=(cmake ninja-build g++ googletest libgtest-dev
              g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64
              mingw-w64-x86-64-dev nlohmann-json3-dev wine wine64 fonts-wine xvfb xauth
              clang libclang-rt-14-dev)

install_packages() {
    local missing=()
    for p in "${DEB_PACKAGES[@]}"; do
        dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    echo "== installing: ${missing[*]}"
    local sudo=""
    [ "$(id -u)" -ne 0 ] && sudo=sudo
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

build_windows() {
    cmake -S "$ROOT" -B "$BUILD/win" -G Ninja -DCMAKE_BUILD_TYPE=Release \
          -DCMAKE_TOOLCHAIN_FILE="$ROOT/cmake/mingw-w64-x86_64.cmake" >/dev/null
    cmake --build "$BUILD/win" -j "$JOBS"
}

build_native() {
    cmake -S "$ROOT" -B "$BUILD/native" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCVPIN_SANITIZE=ON >/dev/null
    cmake --build "$BUILD/native" -j "$JOBS"
}

# A private prefix under build/, so that nothing of the user's own Wine set-up leaks in.
export WINEPREFIX="$BUILD/wineprefix"
export WINEDLLOVERRIDES="mscoree,mshtml="
export WINEDEBUG="${WINEDEBUG:--all}"
export WINEARCH=win64

wine_reg() { /usr/lib/wine/wine64 reg add "$@" /f </dev/null >/dev/null 2>&1; }

prepare_wine() {
    if [ ! -f "$WINEPREFIX/.cvpin-ready" ]; then
        echo "== preparing Wine prefix $WINEPREFIX"
        mkdir -p "$WINEPREFIX"
        wineboot -i </dev/null >/dev/null 2>&1 || true
        # Wine's own fonts are not found in a fresh prefix.
        mkdir -p "$WINEPREFIX/drive_c/windows/Fonts"
        for f in /usr/share/wine/fonts/*; do
            ln -sf "$f" "$WINEPREFIX/drive_c/windows/Fonts/" 2>/dev/null || true
        done
        # Wine draws its own frames: hiding a window then takes milliseconds, not 2 s.
        wine_reg 'HKCU\Software\Wine\X11 Driver' /v Managed /t REG_SZ /d N
        wine_reg 'HKCU\Software\Wine\X11 Driver' /v Decorated /t REG_SZ /d Y
        wineserver -w
        touch "$WINEPREFIX/.cvpin-ready"
    fi
    # One persistent server for the whole run; its helpers must not hold our pipes open.
    wineserver -p </dev/null >/dev/null 2>&1 || true  # one may be running already
    wineboot </dev/null >/dev/null 2>&1 || true
}

stop_wine() { wineserver -k </dev/null >/dev/null 2>&1 || true; }

XVFB_PID=""
ensure_display() {
    if [ -n "${DISPLAY:-}" ] && [ "${CVPIN_FORCE_XVFB:-0}" != 1 ]; then return 0; fi
    local n
    for n in $(seq 91 120); do
        [ -e "/tmp/.X$n-lock" ] && continue
        Xvfb ":$n" -screen 0 1280x900x24 -nolisten tcp </dev/null >/dev/null 2>&1 &
        XVFB_PID=$!
        for _ in $(seq 50); do
            [ -e "/tmp/.X11-unix/X$n" ] && break
            sleep 0.1
        done
        if kill -0 "$XVFB_PID" 2>/dev/null; then
            export DISPLAY=":$n"
            return 0
        fi
    done
    echo "no free display for Xvfb" >&2
    return 1
}

stop_display() { [ -n "$XVFB_PID" ] && kill "$XVFB_PID" 2>/dev/null || true; }
