#!/usr/bin/env bash
# Prepares the Windows (mingw-w64) dependencies of the plug-in in a cache folder
# outside the clone, and reuses them when they are already there:
#   $TAVRI_CACHE/opencv-mingw/install  OpenCV core, static, built from Debian's own
#                                      source package with cmake/mingw-w64-x86_64.cmake
#   $TAVRI_CACHE/mingw-deps            include folder holding only boost, nlohmann,
#                                      spdlog and fmt, plus package configs for them
# Needs: g++-mingw-w64-x86-64-posix, libz-mingw-w64-dev (core compresses with zlib; the
# source package carries no copy of it), cmake, ninja, dpkg-dev, root for apt.
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
repo="$(cd "$here/.." && pwd)"
cache="${TAVRI_CACHE:-$HOME/.cache/tavri}"
ocv="$cache/opencv-mingw"
deps="$cache/mingw-deps"
jobs="${TAVRI_JOBS:-2}"
toolchain="$repo/cmake/mingw-w64-x86_64.cmake"
export TAVRI_CACHE="$cache"

log() { printf '[build-opencv-mingw] %s\n' "$*" >&2; }

# --- header-only dependencies -------------------------------------------------------
# A folder with nothing but the libraries' own header trees: pointing the cross
# compiler at /usr/include would pull glibc and Linux headers into the Windows build.
prepare_deps() {
    mkdir -p "$deps/include" "$deps/lib/cmake/nlohmann_json" "$deps/lib/cmake/spdlog"
    local lib
    for lib in boost nlohmann spdlog fmt; do
        [ -d "/usr/include/$lib" ] || { log "missing /usr/include/$lib"; exit 1; }
        ln -sfn "/usr/include/$lib" "$deps/include/$lib"
    done
    cat > "$deps/lib/cmake/nlohmann_json/nlohmann_jsonConfig.cmake" <<EOF
# Header-only nlohmann-json for the mingw build (headers of the build machine's package).
if(NOT TARGET nlohmann_json::nlohmann_json)
  add_library(nlohmann_json::nlohmann_json INTERFACE IMPORTED)
  set_target_properties(nlohmann_json::nlohmann_json PROPERTIES
    INTERFACE_INCLUDE_DIRECTORIES "$deps/include")
endif()
set(nlohmann_json_FOUND TRUE)
EOF
    # Debian's spdlog is a compiled Linux library over an external fmt; for Windows
    # both are used header-only.
    cat > "$deps/lib/cmake/spdlog/spdlogConfig.cmake" <<EOF
# Header-only spdlog over header-only fmt for the mingw build.
if(NOT TARGET spdlog::spdlog)
  add_library(spdlog::spdlog INTERFACE IMPORTED)
  set_target_properties(spdlog::spdlog PROPERTIES
    INTERFACE_INCLUDE_DIRECTORIES "$deps/include"
    INTERFACE_COMPILE_DEFINITIONS "SPDLOG_HEADER_ONLY;SPDLOG_FMT_EXTERNAL;FMT_HEADER_ONLY")
endif()
set(spdlog_FOUND TRUE)
EOF
}

# --- OpenCV source from Debian's own package ------------------------------------------
# The deb-src entries are twins of the machine's Debian deb entries (same URIs,
# suites, components and keyring), kept in files of ours in the cache and used only
# by the two apt calls below (own lists folder too), so the machine's apt
# configuration and package lists are left as they were.
write_deb_src() {
    local dir="$1"
    local f
    mkdir -p "$dir"
    : > "$dir/tavri-deb-src.sources.tmp"
    for f in /etc/apt/sources.list.d/*.sources; do
        [ -f "$f" ] || continue
        # deb822: blank-line separated stanzas; twin every stanza of type "deb" on a
        # Debian archive, comments dropped.
        awk -v RS= '
            /(^|\n)Types:[^\n]*[ \t]deb([ \t\n]|$)/ && /URIs:[^\n]*debian/ {
                n = split($0, lines, "\n")
                for (i = 1; i <= n; i++) {
                    if (lines[i] ~ /^#/) continue
                    if (lines[i] ~ /^Types:/) lines[i] = "Types: deb-src"
                    print lines[i]
                }
                print ""
            }' "$f" >> "$dir/tavri-deb-src.sources.tmp"
    done
    : > "$dir/tavri-deb-src.list.tmp"
    if [ -f /etc/apt/sources.list ]; then
        sed -n 's/^[[:space:]]*deb[[:space:]]\+\(.*debian.*\)$/deb-src \1/p' /etc/apt/sources.list \
            >> "$dir/tavri-deb-src.list.tmp"
    fi
    if [ ! -s "$dir/tavri-deb-src.sources.tmp" ] && [ ! -s "$dir/tavri-deb-src.list.tmp" ]; then
        log "no Debian deb entry found in /etc/apt to derive a deb-src entry from"
        exit 1
    fi
    mv "$dir/tavri-deb-src.sources.tmp" "$dir/tavri-deb-src.sources"
    mv "$dir/tavri-deb-src.list.tmp" "$dir/tavri-deb-src.list"
}

fetch_source() {
    local srcdir="$ocv/src"
    if compgen -G "$srcdir/opencv-*/CMakeLists.txt" > /dev/null; then
        return
    fi
    command -v dpkg-source > /dev/null || { log "dpkg-dev is needed (dpkg-source)"; exit 1; }
    mkdir -p "$ocv/apt/lists/partial" "$srcdir"
    write_deb_src "$ocv/apt/sources.list.d"
    : > "$ocv/apt/sources.list"
    local -a opts=(-o "Dir::Etc::sourcelist=$ocv/apt/sources.list"
                   -o "Dir::Etc::sourceparts=$ocv/apt/sources.list.d"
                   -o "Dir::State::lists=$ocv/apt/lists" -o "APT::Get::List-Cleanup=0")
    log "fetching Debian's opencv source package"
    timeout 900 apt-get -q "${opts[@]}" update >&2
    (cd "$srcdir" && timeout 1800 apt-get -q "${opts[@]}" source opencv >&2)
    compgen -G "$srcdir/opencv-*/CMakeLists.txt" > /dev/null || { log "apt-get source opencv failed"; exit 1; }
}

# --- OpenCV core for mingw ------------------------------------------------------------
build_opencv() {
    local src
    src="$(ls -d "$ocv"/src/opencv-*/ | head -n1)"
    src="${src%/}"
    local build="$ocv/build" install="$ocv/install"
    local -a off=()
    local w
    # Every optional dependency off: core needs none, and the source package carries
    # no 3rd-party code to build them from.
    for w in 1394 ADE ARAVIS CAROTENE CLP CUDA DIRECTX DSHOW EIGEN FFMPEG FREETYPE GDAL GDCM \
             GPHOTO2 GSTREAMER GTK HALIDE HPX IMGCODEC_HDR IMGCODEC_PFM IMGCODEC_PXM \
             IMGCODEC_SUNRASTER IPP ITT JASPER JPEG LAPACK LIBREALSENSE MFX MSMF \
             MSMF_DXVA NGRAPH ONNX OPENCL OPENCL_D3D11_NV OPENCLAMDBLAS OPENCLAMDFFT \
             OPENEXR OPENGL OPENJPEG OPENMP OPENNI OPENNI2 OPENVINO OPENVX PNG PROTOBUF \
             PVAPI QUIRC QT TBB TIFF UEYE V4L VA VA_INTEL VTK VULKAN WEBP WIN32UI XIMEA \
             XINE TENGINE TIMVX CANN; do
        off+=("-DWITH_$w=OFF")
    done
    log "configuring OpenCV core for mingw ($src)"
    cmake -S "$src" -B "$build" -G Ninja \
        -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
        -DCMAKE_BUILD_TYPE=Release \
        -DCMAKE_INSTALL_PREFIX="$install" \
        -DBUILD_LIST=core \
        -DBUILD_SHARED_LIBS=OFF \
        -DBUILD_opencv_apps=OFF -DBUILD_opencv_world=OFF \
        -DBUILD_TESTS=OFF -DBUILD_PERF_TESTS=OFF -DBUILD_EXAMPLES=OFF \
        -DBUILD_DOCS=OFF -DBUILD_JAVA=OFF -DBUILD_opencv_java=OFF \
        -DBUILD_opencv_python2=OFF -DBUILD_opencv_python3=OFF -DBUILD_opencv_js=OFF \
        -DBUILD_ZLIB=OFF -DZLIB_INCLUDE_DIR=/usr/x86_64-w64-mingw32/include \
        -DZLIB_LIBRARY=/usr/x86_64-w64-mingw32/lib/libz.a \
        -DBUILD_PNG=OFF -DBUILD_JPEG=OFF -DBUILD_TIFF=OFF -DBUILD_WEBP=OFF \
        -DBUILD_OPENEXR=OFF -DBUILD_OPENJPEG=OFF -DBUILD_JASPER=OFF -DBUILD_PROTOBUF=OFF \
        -DBUILD_IPP_IW=OFF -DBUILD_ITT=OFF \
        -DOPENCV_GENERATE_PKGCONFIG=OFF -DOPENCV_ENABLE_NONFREE=OFF \
        -DINSTALL_CREATE_DISTRIB=OFF -DINSTALL_TESTS=OFF -DINSTALL_C_EXAMPLES=OFF \
        -DOPENCV_SKIP_PYTHON_LOADER=ON \
        -DCPU_DISPATCH= \
        -DENABLE_PRECOMPILED_HEADERS=OFF \
        "${off[@]}" >&2
    log "building OpenCV core (nice, -j$jobs)"
    nice -n 10 cmake --build "$build" -j "$jobs" >&2
    cmake --install "$build" >&2
}

main() {
    prepare_deps
    local stamp="$ocv/install/.tavri-stamp"
    local want="opencv core static mingw-posix v1"
    if [ -f "$stamp" ] && [ "$(cat "$stamp")" = "$want" ]; then
        log "OpenCV for mingw already in $ocv/install"
        return
    fi
    fetch_source
    build_opencv
    echo "$want" > "$stamp"
    # Only the installed library is reused; the unpacked sources take ~400 MB.
    rm -rf "$ocv/src" "$ocv/build"
    log "OpenCV for mingw installed in $ocv/install"
}

main "$@"
