#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# A camera that is always there: it joins a stream that runs, and whatever becomes of its source, the
# host sees a picture that moves. Runs in the test machine.
. "$(dirname "$0")/lib.sh"
. "$(dirname "$0")/host.sh"

# Seconds within which the host's picture moves. On a machine it is one, as CameraClientTest has it; the
# emulated processors also load the program and its libraries in that time, each ten times slower.
soon=5

# now: monotonic seconds, as the host's buffers are stamped.
now() {
    cut -d' ' -f1 /proc/uptime
}

# moves_within SECONDS SINCE BEFORE: the first frame after the first BEFORE ones came within SECONDS.
# shellcheck disable=SC2154 # host.sh has host_log
moves_within() {
    wait_log 30 "$host_log" 'cap dqbuf:' $(($3 + 1)) || return 1
    local stamp
    stamp=$(grep 'cap dqbuf:' "$host_log" | sed -n "$(($3 + 1))s/.* ts: \([0-9.]*\).*/\1/p")
    awk -v from="$2" -v to="$stamp" -v limit="$1" '
        BEGIN { printf "after %.2f s\n", to - from; exit !(to - from <= limit) }' |
        tee -a "$SHARE/times.log"
    return "${PIPESTATUS[0]}"
}

# ---- a stream that runs already -------------------------------------------------------------------

start_service_manager
need "the function comes up" gadget up --format mjpeg:640x480@30 --format nv12:640x360@15
start_daemon
need "the daemon opens the node" wait_log 20 "$SHARE/daemon.log" 'added device: /dev/video'
watch MJPG 640x480
need "the host waits for a picture" wait_for 20 streams
start_camera
# Not measured: this machine reads the program for the first time.
need "a camera that comes late joins the stream" moves 5
stop camera KILL
before=$(received)
begun=$(now)
start_camera
check "one that comes back after its death joins at once" moves_within $soon "$begun" "$before"
check "the stream goes on" moves 10
stop camera
stop capture
watch MJPG 640x480
need "the host waits again" wait_for 20 streams
begun=$(now)
start_camera
check "and so does one that comes late" moves_within $soon "$begun" 0
check "the stream goes on" moves 10
check_equal "each camera has made one surface" 3 \
    "$(grep -cE 'Registering surface ptr: 0x' "$SHARE/daemon.log")"

stop daemon KILL
stop capture KILL
start_daemon
need "a new daemon opens the node" wait_log 20 "$SHARE/daemon.log" 'added device: /dev/video' 2
need "and the camera finds it" wait_log 20 "$SHARE/camera.log" 'connected to the desktop' 4
watch MJPG 640x480
need "the host waits again" wait_for 20 streams
check "the restarted daemon's first picture comes at once" moves_within $soon "$(now)" 0

stop daemon KILL
stop capture KILL
# shellcheck disable=SC2154 # lib.sh has it
kill -STOP "${pids[camera]}"
start_daemon
need "a third daemon opens the node" wait_log 20 "$SHARE/daemon.log" 'added device: /dev/video' 3
watch MJPG 640x480
need "the host begins while the camera sleeps" wait_for 20 streams
begun=$(now)
kill -CONT "${pids[camera]}"
check "a camera that finds the service late joins at once" moves_within $soon "$begun" 0
stop capture
stop camera

# ---- a source that comes and goes ------------------------------------------------------------------

need "the kernel has its virtual camera" modprobe vivid n_devs=1 node_types=0x1
vivid=$(vivid_node)
# The camera knows it by a name that comes and goes: were the node itself to go, the daemon would give
# the gadget up, whichever node that is.
camera=/run/camera
plug() {
    ln -s "$vivid" $camera
}

unplug() {
    rm $camera
    v4l2-ctl -d "$vivid" --set-ctrl inject_fatal_streaming_error=1
}

start_camera --source "v4l2src device=$camera"
need "a camera without a source registers" wait_log 20 "$SHARE/camera.log" 'connected to the desktop' 6
film plugged NV12 640x360
need "the host sees a card" moves 20
plug
need "the camera takes the source when it is there" \
    wait_log 15 "$SHARE/camera.log" 'the source gives pictures again'
check "the stream goes on with its pictures" moves 20
unplug
check "the camera notices that it fails" \
    wait_log 15 "$SHARE/camera.log" 'no picture: the source is (failed|silent)'
check "the stream goes on with the card" moves 20
check "the camera notices that it is gone" \
    wait_log 15 "$SHARE/camera.log" 'no picture: the source is absent' 2
plug
check "the camera takes it when it is there again" \
    wait_log 15 "$SHARE/camera.log" 'the source gives pictures again' 2
check "the stream goes on with its pictures" moves 20
check "it was one stream" test "$(grep -c 'rendering NV12' "$SHARE/camera.log")" = 1
stop capture
keep_capture plugged
stop camera

# ---- what a person wants of it ---------------------------------------------------------------------

check "the list names the first camera that is not the webcam itself" \
    grep -E "^$vivid  a camera  \(vivid\)  vivid  <- --source auto$" \
    <<<"$("$KORVANE_BUILD/bin/desktop-camera" --list)"
start_camera --source auto --privacy /run/covered --on-start "echo on >>$SHARE/light" \
    --on-stop "echo off >>$SHARE/light"
need "a camera that finds its source itself registers" \
    wait_log 20 "$SHARE/camera.log" 'connected to the desktop' 7
film covered NV12 640x360
need "the host sees a picture" moves 20
check "which is asked for what the host wants" \
    wait_log 1 "$SHARE/camera.log" 'NV12 640x360 from the source is copied as it is'
check "it is the first camera's" grep -F "taking $vivid, vivid" "$SHARE/camera.log"
check_equal "a lamp is lit" on "$(<"$SHARE/light")"
touch /run/covered
check "the camera is covered" wait_log 5 "$SHARE/camera.log" 'the camera is covered'
check "the stream goes on with a card" moves 20
rm /run/covered
check "the camera is uncovered" wait_log 5 "$SHARE/camera.log" 'the camera is uncovered'
check "the stream goes on with its pictures" moves 40
stop capture
check "the lamp goes out" wait_for 10 grep -x off "$SHARE/light"
keep_capture covered
stop camera

# ---- what a frame costs ----------------------------------------------------------------------------

# camera_cpu: the camera's processor time so far, in microseconds.
camera_cpu() {
    local fields
    read -r -a fields <"/proc/${pids[camera]}/stat"
    echo $(((fields[13] + fields[14]) * 1000000 / $(getconf CLK_TCK)))
}

# cost FORMAT PATTERN: of frames that vivid gives in a format; the camera's log has a line like PATTERN.
cost() {
    local begin frames
    start_camera --source "v4l2src device=$vivid ! video/x-raw,format=$1,width=640,height=360"
    watch NV12 640x360
    check "frames come from $1" moves 15
    check "as they should" wait_log 1 "$SHARE/camera.log" "$2"
    begin=$(camera_cpu) frames=$(received)
    check "more frames come" moves 45
    echo "      from $1: $((($(camera_cpu) - begin) / ($(received) - frames))) us of processor a frame"
    stop capture
    stop camera
}

cost NV12 'NV12 640x360 from the source is copied as it is'
cost YUY2 'YUY2 640x360 from the source is converted to NV12 640x360'
finish
