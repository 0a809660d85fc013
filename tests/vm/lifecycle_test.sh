#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# What a call meets beside a steady stream: other formats, a pulled cable, programs that come, go and
# die, many streams in a row. Nothing of it may need a restart of the daemon. Runs in the test
# machine.
. "$(dirname "$0")/lib.sh"
. "$(dirname "$0")/host.sh"

daemon_log=$SHARE/daemon.log

# lines PATTERN: how many of the daemon's lines match so far.
lines() {
    grep -cE -- "$1" "$daemon_log"
}

# wait_next SECONDS PATTERN COMMAND...: run COMMAND, then wait for one more such line.
wait_next() {
    local limit=$1 pattern=$2 before
    before=$(lines "$2")
    shift 2
    "$@" && wait_log "$limit" "$daemon_log" "$pattern" $((before + 1))
}

# follows NAME SECONDS PATTERN COMMAND...: the same as a check, with COMMAND in this shell, which has
# to know the programs that it starts and stops.
follows() {
    local name=$1 limit=$2 pattern=$3 before
    before=$(lines "$3")
    shift 3
    "$@"
    check "$name" wait_log "$limit" "$daemon_log" "$pattern" $((before + 1))
}

# short_stream FOURCC SIZE RATE: a few frames from the camera to the host, and the stream's end.
short_stream() {
    wait_next 10 'Registering surface ptr: \(nil\)' \
        capture short "$1" "$2" "$3" 8 30 && rm -f "$CAPTURES"/short.*
}

# long_stream: begin a capture and wait for its first frames.
long_stream() {
    start_capture MJPG 640x480
    wait_frames 5
}

# wait_frames COUNT: until the camera has drawn COUNT more frames.
wait_frames() {
    wait_for 30 frames_drawn $(($(wc -l <"$SHARE/camera.frames") + $1))
}

frames_drawn() {
    [ "$(wc -l <"$SHARE/camera.frames")" -ge "$1" ]
}

start_the_camera() {
    start_camera --log "$SHARE/camera.frames"
}

daemon_lives() {
    running daemon
}

# Timed: the kernel lets go of the node only when the daemon does.
unbind_at_once() {
    timeout 5 "$ROOT/vm/gadget" unbind
}

# ---- the programs start in either order ---------------------------------------------------------

: >"$daemon_log"
: >"$SHARE/camera.frames"
need "the function comes up" gadget up
start_daemon
need "the daemon opens the node while there is no service manager" \
    wait_log 20 "$daemon_log" 'added device: /dev/video'
start_service_manager
check "the daemon registers when the service manager comes" \
    wait_log 20 "$daemon_log" 'Registered Camera Desktop HAL service success!'
follows "the camera registers" 20 'Registering client 3' start_the_camera
need "the first stream works" short_stream MJPG 640x480 30

# ---- formats and sizes --------------------------------------------------------------------------

modes=('MJPG 640x480 30' 'YUYV 640x480 30' 'MJPG 1280x720 30' 'YUYV 1280x720 10' 'MJPG 1920x1080 30')
for i in {0..19}; do
    # shellcheck disable=SC2086 # three words
    check "change $((i + 1)) to ${modes[i % 5]}" short_stream ${modes[i % 5]}
done

# ---- descriptors and memory ---------------------------------------------------------------------

descriptors=$(daemon_descriptors)
memory=$(daemon_private)
for _ in {1..50}; do
    short_stream MJPG 640x480 30 >/dev/null || fail "one of fifty streams"
done
check_equal "fifty streams leave no descriptor open" "$descriptors" "$(daemon_descriptors)"
grown=$(($(daemon_private) - memory))
echo "      private memory: $memory kB before, $grown kB more after fifty streams"
check "fifty streams leave no memory in use" test $grown -le 256

# ---- idleness -----------------------------------------------------------------------------------

check "nothing wakes the daemon while nothing streams" wait_for 20 daemon_rests

# ---- the cable ----------------------------------------------------------------------------------

long_stream
freeze_capture
check "unbinding while streaming does not wait for anything" \
    wait_next 10 'removed device' unbind_at_once
thaw_capture
stop capture KILL
check "the daemon finds the node when it is bound again" \
    wait_next 10 'added device' gadget bind
check "and streams again" short_stream MJPG 640x480 30

long_stream
check "a disconnected cable ends the stream" wait_next 10 'Usb disconnected, close out v4l2' \
    raise_uevent change@/devices/virtual/android_usb/android0 ACTION=change \
    SUBSYSTEM=android_usb USB_STATE=DISCONNECTED
stop capture KILL
check "unbinding then does not wait either" unbind_at_once
check "the node comes back" wait_next 10 'added device' gadget bind
check "and streams again after the disconnect" short_stream YUYV 640x480 30

# ---- the camera ---------------------------------------------------------------------------------

long_stream
follows "the daemon notices a camera that is killed while it streams" 10 'Service died for 3' \
    stop camera KILL
stop capture
check "the daemon has survived it" daemon_lives
follows "a new camera registers" 20 'Registering client 3' start_the_camera
check "the next stream works with the new camera" short_stream MJPG 1280x720 30

# ---- the service --------------------------------------------------------------------------------

restart_daemon() {
    stop daemon KILL
    start_daemon
}
# found_again NAME: the camera and the host go on with a daemon that was killed and started again.
found_again() {
    local opened
    opened=$(lines 'added device')
    follows "the camera finds a daemon that was killed $1" 20 'Registering client 3' restart_daemon
    check "which opens the node" wait_log 20 "$daemon_log" 'added device' $((opened + 1))
    stop capture KILL
    check "and streams" short_stream MJPG 640x480 30
}
found_again "while idle"
long_stream
found_again "while it streamed"

# ---- who may register ---------------------------------------------------------------------------

cp "$KORVANE_BUILD/bin/korvane.hardware.camera.desktop@2.0-service" /run/daemon
chmod 666 /dev/hwbinder
status=0
timeout 30 setpriv --reuid=65534 --clear-groups /run/daemon >"$SHARE/refused.log" 2>&1 || status=$?
check_equal "a daemon that may not register ends with status 1" 1 $status
check "and says why" grep 'Cannot register Camera Desktop HAL service' "$SHARE/refused.log"
check "while the one that is registered goes on" short_stream MJPG 640x480 30
finish
