#!/usr/bin/env bash
# The packages as a user gets them: builds the .debs from a finished build, checks them
# with lintian, installs them into this machine with apt, builds a host program against
# them through the CMake package and through pkg-config, runs it, the installed
# teli-grab and the installed Python module on the simulated rig, and purges the
# packages again, whatever happened. Needs root (or sudo): it runs on a CI machine.
#
#   bash scripts/package-test.sh [BUILD_DIR]     default build/default
set -euo pipefail
repo="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="$(cd "${1:-$repo/build/default}" && pwd)"

log() { printf '[package] %s\n' "$*" >&2; }
fail() { printf '[package] FAILED: %s\n' "$*" >&2; exit 1; }
as_root() { if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo -n "$@"; fi; }
# Another apt run on the machine holds the lock for a while: wait for it.
apt_get() { as_root env DEBIAN_FRONTEND=noninteractive apt-get -y -q -o DPkg::Lock::Timeout=300 "$@"; }

work="$(mktemp -d "${TMPDIR:-/tmp}/tavri-package.XXXXXX")"
installed=()
cleanup() {
    if [ ${#installed[@]} -gt 0 ]; then
        log "purging ${installed[*]}"
        apt_get purge "${installed[@]}" > "$work/purge.log" 2>&1 || { cat "$work/purge.log" >&2; log "purge failed"; }
    fi
    rm -rf "$work"
}
trap cleanup EXIT

log "building the .debs"
(cd "$build" && cpack -G DEB -B "$work/cpack" > "$work/cpack.log") || { cat "$work/cpack.log" >&2; fail "cpack"; }
declare -A deb
for file in "$work"/cpack/*.deb; do deb["$(dpkg-deb -f "$file" Package)"]="$file"; done
runtime=libtavriapi0 dev=libtavriapi-dev tool=teli-grab python=python3-tavri-teli
for package in $runtime $dev $tool $python; do
    [ -n "${deb[$package]:-}" ] || fail "no package $package among: ${!deb[*]}"
    log "$package: Depends: $(dpkg-deb -f "${deb[$package]}" Depends)"
done
[ ${#deb[@]} -eq 4 ] || fail "expected four packages, found: ${!deb[*]}"
version="$(dpkg-deb -f "${deb[$runtime]}" Version)"

depends_on() {  # package dependency...
    local package="$1" depends
    depends="$(dpkg-deb -f "${deb[$package]}" Depends)"
    shift
    for wanted in "$@"; do
        grep -Eq "(^|, )$wanted( |,|$)" <<< "$depends" || fail "$package does not depend on $wanted: $depends"
    done
}
# dpkg-shlibdeps ran: the C library the binaries link is among the dependencies.
depends_on $runtime libc6
depends_on $tool libc6 $runtime
depends_on $dev $runtime libboost-dev libopencv-core-dev
depends_on $python $runtime python3-numpy python3
# The runtime package is named after its libraries' soname.
for library in $(dpkg-deb -c "${deb[$runtime]}" | grep -o '/usr/lib/lib[^ ]*\.so\.[0-9]*$'); do
    soname="$(dpkg-deb --fsys-tarfile "${deb[$runtime]}" | tar -xO ".$library" | objdump -p /dev/stdin | awk '$1 == "SONAME" { print $2 }')"
    [ "$soname" = "$(basename "$library")" ] || fail "$library has the soname $soname"
done

log "lintian"
# No error and no warning, beyond the overrides packaging/ gives with their reasons.
lintian --fail-on error,warning --tag-display-limit 0 "${deb[@]}" || fail "lintian reports errors or warnings"

for package in $runtime $dev $tool $python; do
    if dpkg-query -W -f '${Status}' "$package" 2> /dev/null | grep -q 'ok installed'; then
        fail "$package is installed already: this test installs and purges its own"
    fi
done
log "apt-get install ${deb[*]}"
installed=("$runtime" "$dev" "$tool" "$python")
apt_get install --no-install-recommends "${deb[@]}" > "$work/install.log" 2>&1 || { cat "$work/install.log" >&2; fail "apt-get install"; }
for path in /usr/bin/teli-grab /usr/share/man/man1/teli-grab.1.gz /usr/share/bash-completion/completions/teli-grab \
    /usr/include/tavri/TavriAPI/CameraDriver.h /usr/include/tavri/settings/SettingsOld.h /usr/include/tavri/sdk/TeliSdk.h; do
    [ -e "$path" ] || fail "$path not installed"
done
# Each subcommand of the man page is a subsection, and its option list a paragraph of
# its own, not text run into the summary.
page="$(zcat /usr/share/man/man1/teli-grab.1.gz)"
grep -qx '.SS sequence' <<< "$page" || fail "the man page has no subsection per subcommand"
! grep -Eqx '(Options|Positionals):' <<< "$page" || fail "the man page runs 'Options:' into the text"

rigs="$(dpkg -L $runtime | grep '/rigs/default.json$')"
[ -f "$rigs" ] || fail "no rig file installed"
# Every listing below must show the cameras of the installed rig file, in its order.
# Nothing from the build tree or the caller's environment may help the installed files.
export TAVRI_TELI_SDK=sim TAVRI_SIM_RIG="$rigs"
unset LD_LIBRARY_PATH PKG_CONFIG_PATH PYTHONPATH CMAKE_PREFIX_PATH TAVRI_TELI_PLUGIN
cd "$work"
expected="$(grep -o '"serial": *"[^"]*"' "$rigs" | sed 's/.*"\([^"]*\)"$/\1/')"
[ -n "$expected" ] || fail "no serials in $rigs"
plugin="$(dpkg -L $runtime | grep '/libtavri_toshiba_teli\.so$')"

check_consumer() {  # name program
    local output
    output="$("$2")" || fail "$1 consumer exits with $?"
    # pkg-config gives the path from its own file: ${pcfiledir}/../../..
    [ "$(realpath "$(sed -n 's/^plugin //p' <<< "$output")")" = "$plugin" ] ||
        fail "$1 consumer did not load the installed plug-in: $output"
    [ "$(sed -n 's/^camera //p' <<< "$output")" = "$expected" ] || fail "$1 consumer lists: $output"
    grep -q '^size [1-9][0-9]*x[1-9][0-9]* settings [1-9]' <<< "$output" || fail "$1 consumer could not open a camera: $output"
    log "$1 consumer: $(tr '\n' ' ' <<< "$output")"
}

log "consumer through find_package(TavriToshibaTeli)"
cmake -S "$repo/tests/package/consumer" -B "$work/consumer" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    > "$work/consumer.log" || { cat "$work/consumer.log" >&2; fail "consumer configure"; }
grep -q "^TavriToshibaTeli_DIR:PATH=/usr/lib/" "$work/consumer/CMakeCache.txt" || fail "the installed package was not found"
cmake --build "$work/consumer" > "$work/consumer-build.log" || { cat "$work/consumer-build.log" >&2; fail "consumer build"; }
check_consumer cmake "$work/consumer/consumer"

log "consumer through pkg-config"
pc=tavri-toshiba-teli
[ "$(pkg-config --modversion $pc)" = "$version" ] || fail "pkg-config version $(pkg-config --modversion $pc) is not $version"
# shellcheck disable=SC2046  # the flags are meant to split
c++ -std=c++17 -O1 -o "$work/consumer-pc" "$repo/tests/package/consumer/main.cpp" \
    -DTAVRI_PLUGIN="\"$(pkg-config --variable=plugin $pc)\"" $(pkg-config --cflags --libs $pc) -ldl ||
    fail "pkg-config consumer build"
check_consumer pkg-config "$work/consumer-pc"

log "installed teli-grab"
[ "$(command -v teli-grab)" = /usr/bin/teli-grab ] || fail "teli-grab is not the installed one: $(command -v teli-grab)"
[ "$(teli-grab --version)" = "teli-grab $version" ] || fail "teli-grab --version: $(teli-grab --version)"
listed="$(teli-grab --sdk sim list)" || fail "teli-grab --sdk sim list exits with $?"
[ "$(awk 'NR > 1 { print $1 }' <<< "$listed")" = "$expected" ] || fail "teli-grab lists: $listed"
# Writing an image loads the codec module from its installed place.
teli-grab --sdk sim grab -o "$work/still.png" 2> "$work/grab.log" || { cat "$work/grab.log" >&2; fail "teli-grab grab"; }
[ "$(head -c 4 "$work/still.png" | od -An -c | tr -d ' ')" = "211PNG" ] || fail "teli-grab grab wrote no PNG"

log "installed Python module, with Debian's python3"
taken="$(/usr/bin/python3 -I - << 'EOF'
import tavri_teli as teli
print(teli.__file__)
with teli.open(sdk="sim") as camera:
    taken = camera.sequence(12)
    print(taken.images.shape, taken.verdict)
EOF
)" || fail "the installed tavri_teli could not take a sequence: $taken"
grep -Eqx "/usr/lib/python3/dist-packages/tavri_teli\.cpython-[0-9]+-.*\.so" <<< "$(head -n 1 <<< "$taken")" ||
    fail "tavri_teli was not imported from the installed package: $taken"
grep -Eqx '\(12, [1-9][0-9]*, [1-9][0-9]*\) whole' <<< "$(tail -n 1 <<< "$taken")" || fail "tavri_teli sequence: $taken"
log "python: $(tr '\n' ' ' <<< "$taken")"
log "package checks passed"
