#!/usr/bin/env bash
# The Windows part, end to end: installs the cross compiler and wine, builds OpenCV
# core for mingw (cached outside the clone), cross-builds the plug-in, the stand-in
# TeliCamApi64.dll and the Windows test programs into build/windows, packs the plug-in,
# the host DLLs and the headers into a ZIP (build/windows/package), and runs the
# Windows suite under wine with ctest.
#
#   bash scripts/windows.sh            everything
#   TAVRI_CACHE=dir                    where the mingw dependencies are cached
#                                      (default ~/.cache/tavri)
#   TAVRI_JOBS=n                       parallel build jobs (default 2)
#   TAVRI_WINDOWS_BUILD=dir            build folder (default build/windows)
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
repo="$(cd "$here/.." && pwd)"
build="${TAVRI_WINDOWS_BUILD:-$repo/build/windows}"
jobs="${TAVRI_JOBS:-2}"
export TAVRI_CACHE="${TAVRI_CACHE:-$HOME/.cache/tavri}"
export DEBIAN_FRONTEND=noninteractive

log() { printf '[windows] %s\n' "$*" >&2; }
SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"

# --- packages ---------------------------------------------------------------------
# wine64 alone runs the 64-bit programs; no i386 architecture is needed.
packages=(g++-mingw-w64-x86-64-posix libz-mingw-w64-dev wine64 wine dpkg-dev
          cmake ninja-build googletest libboost-dev nlohmann-json3-dev libspdlog-dev libfmt-dev)
missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
    log "installing ${missing[*]}"
    apt=($SUDO apt-get -o DPkg::Lock::Timeout=300 -y -q)
    timeout 900 "${apt[@]}" install --no-install-recommends "${missing[@]}" ||
        { timeout 600 "${apt[@]}" update && timeout 900 "${apt[@]}" install --no-install-recommends "${missing[@]}"; }
fi

# --- dependencies for mingw (cached) ---------------------------------------------------
timeout 7200 bash "$here/build-opencv-mingw.sh"

# --- cross build ----------------------------------------------------------------------
log "configuring $build"
timeout 600 cmake -S "$repo" -B "$build" -G Ninja \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_TOOLCHAIN_FILE="$repo/cmake/mingw-w64-x86_64.cmake" \
    -DTAVRI_BUILD_TESTS=ON -DTAVRI_BUILD_BENCHMARKS=OFF -DTAVRI_BUILD_TOOLS=OFF \
    -DTAVRI_WITH_SIM=ON -DTAVRI_WITH_TELI=ON -DTAVRI_WITH_ARAVIS=OFF >&2
log "building"
timeout 3600 nice -n 10 cmake --build "$build" -j "$jobs" >&2

# --- ZIP ----------------------------------------------------------------------------------
# The plug-in DLL, the host DLLs with their import libraries, and the headers.
log "packing the ZIP"
rm -f "$build"/package/*.zip
(cd "$build" && timeout 600 cpack -G ZIP -B "$build/package") >&2
zip_listing="$(cmake -E tar tf "$build"/package/*.zip)"
for member in bin/tavri_toshiba_teli.dll bin/TavriAPI.dll bin/TavriCommon.dll \
    include/tavri/TavriAPI/CameraDriver.h include/tavri/sdk/TeliSdk.h; do
    grep -q "/$member\$" <<< "$zip_listing" || { log "the ZIP lacks $member"; exit 1; }
done

# --- wine -------------------------------------------------------------------------------
# A prefix of our own for this run, no display, no .NET or Gecko installers, and only
# wine's own errors about modules. A persistent wineserver, started before wineboot,
# keeps wine's helper processes from holding ctest's output pipe after each test.
WINEPREFIX="$(mktemp -d "${TMPDIR:-/tmp}/tavri-wine.XXXXXX")"
export WINEPREFIX
export WINEDEBUG="-all,err+module"
export WINEDLLOVERRIDES="mscoree,mshtml="
unset DISPLAY WAYLAND_DISPLAY
# The wineserver's socket folder is named after the prefix's device and inode.
server_dir="$(printf 'server-%x-%x' "$(stat -c %d "$WINEPREFIX")" "$(stat -c %i "$WINEPREFIX")")"
cleanup() {
    timeout 60 wineserver -k > /dev/null 2>&1 || true
    timeout 60 wineserver -w > /dev/null 2>&1 || true
    rm -rf "$WINEPREFIX"
    local dir
    for dir in "${TMPDIR:-/tmp}"/wine-*/"$server_dir" "${TMPDIR:-/tmp}/.wine-$(id -u)/$server_dir"; do
        [ -d "$dir" ] && [ ! -e "$dir/socket" ] || continue
        rm -f "$dir/lock"
        rmdir "$dir" 2> /dev/null && rmdir "$(dirname "$dir")" 2> /dev/null
    done
    return 0
}
trap cleanup EXIT

log "starting wine in $WINEPREFIX"
timeout 60 wineserver -p
timeout 300 wine wineboot > /dev/null 2>&1

log "running the Windows suite under wine"
cd "$build"
timeout 1800 ctest -L windows --output-on-failure --timeout 300
