#!/usr/bin/env bash
# Installs every Debian package the project needs. Safe to run again.
set -euo pipefail
export DEBIAN_FRONTEND=noninteractive
SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
APT="$SUDO apt-get -o DPkg::Lock::Timeout=300 -y -q"

packages=(
  build-essential cmake ninja-build pkg-config
  libopencv-core-dev libopencv-imgproc-dev libopencv-imgcodecs-dev
  libboost-dev libspdlog-dev nlohmann-json3-dev libcli11-dev
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  help2man lintian file
)
packages+=(libcpp-httplib-dev)  # teli-grab view's HTTP server
packages+=(python3-dev pybind11-dev python3-numpy python3-pytest)  # the Python host (python/) and its tests
if [ "${1:-}" != "--core" ]; then
  packages+=(libaravis-dev aravis-tools aravis-tools-cli libusb-1.0-0-dev zlib1g-dev iproute2 util-linux)
  packages+=(chromium nodejs)  # the browser and node for the live-view test (tests/view)
  command -v npm >/dev/null || packages+=(npm)
fi

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  $APT update
  $APT install --no-install-recommends "${missing[@]}"
fi

# The fuzz build (scripts/fuzz.sh): clang and its libFuzzer and sanitizer runtimes.
if [ "${1:-}" != "--core" ]; then
  fuzz_missing=()
  for p in clang libclang-rt-14-dev; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || fuzz_missing+=("$p")
  done
  if [ ${#fuzz_missing[@]} -gt 0 ]; then
    $APT update
    $APT install --no-install-recommends "${fuzz_missing[@]}"
  fi
fi
