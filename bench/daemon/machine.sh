#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# The daemon as a process on a real kernel, in the test machine: its start, calls to it, how often its
# threads run while nothing happens, the host's requests, the memory that it has for itself. Leaves
# benchmark files, daemon-*.json, in $SHARE. BENCH_SECONDS (2) is the length of each measurement,
# IDLE_SECONDS (60) that of each idle period.
. "$(dirname "$0")/../../tests/vm/lib.sh"
. "$ROOT/tests/vm/host.sh"

idle=${IDLE_SECONDS:-60} seconds=${BENCH_SECONDS:-2}
figures=()
cameras=0

# bench SECONDS JSON PROGRAM [ARGUMENT...]. On one processor: where a wake-up crosses to another one, an
# emulated machine measures how long its host takes to run that one.
bench() {
    local seconds=$1 json=$2 program=$3
    shift 3
    need "$program" taskset 1 "$KORVANE_BUILD/bench/$program" "$@" --benchmark_out="$SHARE/$json" \
        --benchmark_min_time="$seconds"
}

# note NAME COUNTER VALUE [COUNTER VALUE]: figures of this script's own, as one more benchmark.
note() {
    local json="\"name\": \"$1\", \"run_type\": \"iteration\", \"iterations\": 1"
    echo "      $*"
    shift
    while [ $# -gt 0 ]; do
        json+=", \"$1\": $2"
        shift 2
    done
    figures+=("{$json}")
}

write_figures() {
    local IFS=,
    echo "{\"context\": {\"executable\": \"machine.sh\"}, \"benchmarks\": [${figures[*]}]}"
}

# memory NAME: the daemon's private memory, and how much of it are the video node's buffers: the
# kernel's own memory, private only in that nobody else has mapped it.
memory() {
    local private node
    read -r private node < <(awk '
        /^[0-9a-f]+-/ { is_node = index($6, "/dev/video") == 1 }
        /^Private_/ { private += $2; node += is_node * $2 }
        END { print private, node + 0 }' "/proc/${pids[daemon]}/smaps")
    note "memory/$1" private_kb "$private" node_kb "$node"
}

# quiet NAME: measures the daemon while nobody asks anything of it.
quiet() {
    wait_for 30 daemon_rests
    note "wake_ups/$1" count "$(daemon_wake_ups "$idle")" seconds "$idle"
    memory "$1"
}

# stream FOURCC SIZE: the memory in the middle of a stream.
stream() {
    local frames=$SHARE/$1-$2.frames
    start_camera --log "$frames"
    need "$1 $2: a camera is there" \
        wait_log 20 "$SHARE/daemon.log" 'Registering client 3' $((++cameras))
    start_capture "$1" "$2"
    need "$1 $2: frames are drawn" wait_log 100 "$frames" . 30
    memory "$1/$2"
    stop capture
    stop camera
}

# usb_node VIDEO: the node under /dev/bus/usb of the webcam that has this video node at the host.
usb_node() {
    local interface
    interface=$(readlink -f "/sys/class/video4linux/${1##*/}/device")
    printf '/dev/bus/usb/%03d/%03d\n' "$(<"${interface%/*}/busnum")" "$(<"${interface%/*}/devnum")"
}

bench "$seconds" daemon-binder.json BinderBench
start_service_manager
need "the service manager is there" wait_log 20 "$SHARE/hwservicemanager.log" Ready
# A few dozen starts.
bench $((5 * seconds)) daemon-machine-start.json StartBench

start_daemon
need "the daemon has finished its start" \
    wait_log 30 "$SHARE/daemon.log" 'Got service for camera desktop 0x'
quiet idle
need "the function comes up" gadget up
need "the daemon opens its node" wait_log 20 "$SHARE/daemon.log" 'added device: /dev/video'
need "the host sees a camera" wait_host_node 20
quiet open
video=$(host_node)
start_capture MJPG 640x480
need "the host streams" wait_log 20 "$SHARE/daemon.log" 'commit with fmt'
quiet starved
stop capture
need "until it stops" wait_log 20 "$SHARE/daemon.log" 'Registering surface ptr: .nil.'
bench "$seconds" daemon-usb.json UsbRequestBench "$(usb_node "$video")" "$video"
stream MJPG 1280x720
stream MJPG 1920x1080
stream YUYV 640x480
write_figures >"$SHARE/daemon-processes.json"
finish
