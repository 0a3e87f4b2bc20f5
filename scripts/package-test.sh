#!/usr/bin/env bash
# The package as a user gets it: builds the .deb from a finished build, checks it with
# lintian, unpacks it into a temporary root (nothing is installed into the system),
# builds a host program against that root through the CMake package and through
# pkg-config, and runs it and the installed teli-grab on the simulated rig.
#
#   bash scripts/package-test.sh [BUILD_DIR]     default build/default
set -euo pipefail
repo="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="$(cd "${1:-$repo/build/default}" && pwd)"

work="$(mktemp -d "${TMPDIR:-/tmp}/tavri-package.XXXXXX")"
trap 'rm -rf "$work"' EXIT
log() { printf '[package] %s\n' "$*" >&2; }
fail() { printf '[package] FAILED: %s\n' "$*" >&2; exit 1; }

log "building the .deb"
(cd "$build" && cpack -G DEB -B "$work/cpack" > "$work/cpack.log") || { cat "$work/cpack.log" >&2; fail "cpack"; }
debs=("$work"/cpack/*.deb)
[ ${#debs[@]} -eq 1 ] && [ -f "${debs[0]}" ] || fail "expected one .deb, found: ${debs[*]}"
deb="${debs[0]}"
version="$(dpkg-deb -f "$deb" Version)"
log "$(basename "$deb"), Depends: $(dpkg-deb -f "$deb" Depends)"
# dpkg-shlibdeps ran: the C library the binaries link is among the dependencies.
dpkg-deb -f "$deb" Depends | grep -q 'libc6 (>=' || fail "no computed library dependencies"

log "lintian"
lintian --fail-on error --tag-display-limit 0 "$deb" || fail "lintian reports errors"

root="$work/root"
dpkg-deb -x "$deb" "$root"
for path in usr/bin/teli-grab usr/share/man/man1/teli-grab.1.gz \
    usr/share/bash-completion/completions/teli-grab usr/include/tavri/TavriAPI/CameraDriver.h \
    usr/include/tavri/settings/SettingsOld.h usr/include/tavri/sdk/TeliSdk.h; do
    [ -e "$root/$path" ] || fail "$path missing from the package"
done
rigs="$(find "$root" -path '*/rigs/default.json')"
pcdir="$(dirname "$(find "$root" -name tavri-toshiba-teli.pc)")"
[ -f "$rigs" ] && [ -d "$pcdir" ] || fail "rig file or pkg-config file missing"

# Every listing below must show the cameras of the installed rig file, in its order.
export TAVRI_TELI_SDK=sim TAVRI_SIM_RIG="$rigs"
unset LD_LIBRARY_PATH
expected="$(grep -o '"serial": *"[^"]*"' "$rigs" | sed 's/.*"\([^"]*\)"$/\1/')"
[ -n "$expected" ] || fail "no serials in $rigs"

check_consumer() {  # name program
    local output
    output="$("$2")" || fail "$1 consumer exits with $?"
    grep -qx "plugin $root/.*libtavri_toshiba_teli.so" <<< "$output" || fail "$1 consumer did not load the unpacked plug-in: $output"
    [ "$(sed -n 's/^camera //p' <<< "$output")" = "$expected" ] || fail "$1 consumer lists: $output"
    grep -q '^size [1-9][0-9]*x[1-9][0-9]* settings [1-9]' <<< "$output" || fail "$1 consumer could not open a camera: $output"
    log "$1 consumer: $(tr '\n' ' ' <<< "$output")"
}

log "consumer through find_package(TavriToshibaTeli)"
cmake -S "$repo/tests/package/consumer" -B "$work/consumer" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_PREFIX_PATH="$root/usr" > "$work/consumer.log" || { cat "$work/consumer.log" >&2; fail "consumer configure"; }
grep -q "^TavriToshibaTeli_DIR:PATH=$root/" "$work/consumer/CMakeCache.txt" || fail "the package was not found in the unpacked root"
cmake --build "$work/consumer" > "$work/consumer-build.log" || { cat "$work/consumer-build.log" >&2; fail "consumer build"; }
check_consumer cmake "$work/consumer/consumer"

log "consumer through pkg-config"
export PKG_CONFIG_PATH="$pcdir"
pc=tavri-toshiba-teli
[ "$(pkg-config --modversion $pc)" = "$version" ] || fail "pkg-config version $(pkg-config --modversion $pc) is not $version"
# shellcheck disable=SC2046  # the flags are meant to split
c++ -std=c++17 -O1 -o "$work/consumer-pc" "$repo/tests/package/consumer/main.cpp" \
    -DTAVRI_PLUGIN="\"$(pkg-config --variable=plugin $pc)\"" \
    $(pkg-config --cflags $pc) $(pkg-config --libs $pc) -ldl -Wl,-rpath,"$(pkg-config --variable=libdir $pc)" ||
    fail "pkg-config consumer build"
check_consumer pkg-config "$work/consumer-pc"

log "installed teli-grab"
grab="$root/usr/bin/teli-grab"
[ "$("$grab" --version)" = "teli-grab $version" ] || fail "teli-grab --version: $("$grab" --version)"
listed="$("$grab" --sdk sim list)" || fail "teli-grab --sdk sim list exits with $?"
[ "$(awk 'NR > 1 { print $1 }' <<< "$listed")" = "$expected" ] || fail "teli-grab lists: $listed"
# Writing an image loads the codec module from its installed place.
"$grab" --sdk sim grab -o "$work/still.png" 2> "$work/grab.log" || { cat "$work/grab.log" >&2; fail "teli-grab grab"; }
[ "$(head -c 4 "$work/still.png" | od -An -c | tr -d ' ')" = "211PNG" ] || fail "teli-grab grab wrote no PNG"
log "package checks passed"
