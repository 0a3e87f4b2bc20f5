#!/usr/bin/env bash
# Runs one GigE test program inside a private network namespace that has loopback
# only, with fake GigE cameras on its loopback addresses, so camera discovery never
# reaches a real interface. Every camera it starts is stopped by pid when it ends,
# always; every step is bounded in time.
#
# usage: run-in-netns.sh FIXTURE_BINARY FIXTURE_XML PROGRAM [ARGS...]
#
# Cameras (serial @ address):
#   TAVRI-GV1 @ 127.0.0.2, TAVRI-GV2 @ 127.0.0.3, TAVRI-GV3 @ 127.0.0.4
#       arv-fake-gv-camera-0.8, the stock fake camera
#   TAVRI-FIX @ 127.0.0.5, TAVRI-FIX2 @ 127.0.0.7
#       our fixture (FIXTURE_BINARY with FIXTURE_XML), each with a trigger line pulsed
#       through a control FIFO of its own; wired to one projector, a test writes every
#       pulse to both FIFOs (tests/gige/GigeCameras.cpp)
#   TAVRI-LOSSY @ 127.0.0.6
#       arv-fake-gv-camera-0.8 dropping 2 % of its stream packets (-r 20)
# The program finds in its environment:
#   TAVRI_GIGE_STOCK_SERIALS, TAVRI_GIGE_FIXTURE_SERIAL, TAVRI_GIGE_FIXTURE_CONTROL (the
#   first fixture), TAVRI_GIGE_FIXTURE_SERIALS, TAVRI_GIGE_FIXTURE_CONTROLS (every
#   fixture, in the same order), TAVRI_GIGE_LOSSY_SERIAL,
#   TAVRI_GIGE_PIDS ("serial=pid ..."), TAVRI_GIGE_IN_NETNS=1.
# TAVRI_GIGE_TIMEOUT (seconds, default 120) bounds the whole run.
# TAVRI_GIGE_FIXTURE_ARGS replaces the fixture's geometry and rate options
# of every fixture (default "--sensor 640x480").
set -u

if (($# < 3)); then
    echo "usage: $0 FIXTURE_BINARY FIXTURE_XML PROGRAM [ARGS...]" >&2
    exit 2
fi
fixture=$1
xml=$2
shift 2

# Listing a test program's cases talks to no camera.
for arg in "$@"; do
    [[ $arg == --gtest_list_tests ]] && exec "$@"
done

limit=${TAVRI_GIGE_TIMEOUT:-120}
if [[ -z ${TAVRI_GIGE_IN_NETNS:-} ]]; then
    if [[ $(id -u) -eq 0 ]]; then
        isolate=(unshare --net --kill-child)
    else
        isolate=(unshare --net --map-root-user --kill-child)
    fi
    exec timeout -k 5 "$limit" "${isolate[@]}" env TAVRI_GIGE_IN_NETNS=1 bash "$0" "$fixture" "$xml" "$@"
fi

# --- inside the namespace ---------------------------------------------------------
ip link set lo up || exit 1
for host in 2 3 4 5 6 7; do
    ip addr add "127.0.0.$host/8" dev lo || exit 1
done
# Refuse to go on unless loopback is the only interface here.
if ip -o link show | grep -vq ': lo:'; then
    echo "run-in-netns: namespace has interfaces besides loopback; refusing" >&2
    exit 1
fi

workdir=$(mktemp -d /tmp/tavri-gige.XXXXXX)
declare -A pids=()
program_pid=

stop_pid() {
    local pid=$1
    kill -TERM "$pid" 2>/dev/null || return 0
    for _ in $(seq 30); do
        kill -0 "$pid" 2>/dev/null || return 0
        sleep 0.1
    done
    kill -KILL "$pid" 2>/dev/null
    wait "$pid" 2>/dev/null
}

cleanup() {
    [[ -n $program_pid ]] && stop_pid "$program_pid"
    for serial in "${!pids[@]}"; do
        stop_pid "${pids[$serial]}"
    done
    rm -rf "$workdir"
}
trap cleanup EXIT
trap 'exit 143' TERM INT

# Each camera dies with this script even if the script is killed outright.
start_camera() {
    local serial=$1
    shift
    setpriv --pdeathsig KILL "$@" >"$workdir/$serial.log" 2>&1 &
    pids[$serial]=$!
}

stock_serials="TAVRI-GV1 TAVRI-GV2 TAVRI-GV3"
host=2
for serial in $stock_serials; do
    start_camera "$serial" arv-fake-gv-camera-0.8 -i "127.0.0.$host" -s "$serial"
    host=$((host + 1))
done
start_camera TAVRI-LOSSY arv-fake-gv-camera-0.8 -i 127.0.0.6 -s TAVRI-LOSSY -r 20
fixture_serials="TAVRI-FIX TAVRI-FIX2"
declare -A fixture_hosts=([TAVRI-FIX]=5 [TAVRI-FIX2]=7)
fixture_controls=
for serial in $fixture_serials; do
    mkfifo "$workdir/$serial.trigger"
    fixture_controls+="$workdir/$serial.trigger "
    start_camera "$serial" "$fixture" --address "127.0.0.${fixture_hosts[$serial]}" --serial "$serial" \
        --genicam "$xml" --control "$workdir/$serial.trigger" ${TAVRI_GIGE_FIXTURE_ARGS:---sensor 640x480}
done

# Wait, bounded, until discovery sees every camera.
ready=
for _ in $(seq 40); do
    listing=$(timeout 5 arv-tool-0.8 2>/dev/null)
    ready=yes
    for serial in $stock_serials $fixture_serials TAVRI-LOSSY; do
        grep -q -- "-$serial " <<<"$listing" || ready=
    done
    [[ -n $ready ]] && break
    sleep 0.25
done
if [[ -z $ready ]]; then
    echo "run-in-netns: cameras did not come up; discovery saw:" >&2
    echo "$listing" >&2
    cat "$workdir"/*.log >&2
    exit 1
fi

export TAVRI_GIGE_STOCK_SERIALS=$stock_serials
export TAVRI_GIGE_FIXTURE_SERIAL=TAVRI-FIX
export TAVRI_GIGE_FIXTURE_CONTROL=$workdir/TAVRI-FIX.trigger
export TAVRI_GIGE_FIXTURE_SERIALS=$fixture_serials
export TAVRI_GIGE_FIXTURE_CONTROLS=${fixture_controls% }
export TAVRI_GIGE_LOSSY_SERIAL=TAVRI-LOSSY
TAVRI_GIGE_PIDS=
for serial in "${!pids[@]}"; do
    TAVRI_GIGE_PIDS+="$serial=${pids[$serial]} "
done
export TAVRI_GIGE_PIDS

timeout -k 5 $((limit - 15)) "$@" &
program_pid=$!
wait "$program_pid"
status=$?
program_pid=
exit "$status"
