#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# The main job: a stream of each format, from the camera to the host, STREAM_SECONDS each (10). Runs
# in the test machine; streams_after.sh then checks every frame natively.
. "$(dirname "$0")/lib.sh"
. "$(dirname "$0")/host.sh"

seconds=${STREAM_SECONDS:-10}

# stream NAME FOURCC SIZE RATE
stream() {
    local name=$1 fourcc=$2 size=$3 rate=$4 count cpu
    count=$((rate * seconds))
    start_camera --log "$SHARE/$name.frames"
    need "$name: a camera is there" wait_log 20 "$SHARE/daemon.log" 'Registering client 3' $((++cameras))
    cpu=$(daemon_cpu)
    need "$name: the kernel counts the frames sent" trace_sent
    note_memory "$name" &
    check "$name: the host receives $count frames of $size" \
        capture "$name" "$fourcc" "$size" "$rate" "$count" $((seconds * 4 + 20))
    cpu=$(($(daemon_cpu) - cpu))
    stop camera
    {
        echo "fourcc=$fourcc size=$size rate=$rate sent=$(sent)"
        echo "cpu_us=$((cpu / count)) private_kb=$(cat "$CAPTURES/$name.private")"
    } >"$SHARE/$name.figures"
    keep_capture "$name"
}

# What memory the daemon has for itself while frames arrive.
note_memory() {
    wait_for 60 test -s "$CAPTURES/$1.raw" && daemon_private >"$CAPTURES/$1.private"
}

cameras=0
start_service_manager
need "the function comes up" gadget up
start_daemon
need "the daemon opens its node" wait_log 20 "$SHARE/daemon.log" 'added device: /dev/video'
stream mjpeg MJPG 1280x720 30
stream yuyv YUYV 640x480 30
start_camera --log "$SHARE/ffmpeg.frames"
need "ffmpeg: a camera is there" wait_log 20 "$SHARE/daemon.log" 'Registering client 3' $((++cameras))
check "ffmpeg receives frames, too" timeout 90 ffmpeg -v error -nostdin -f v4l2 -input_format mjpeg \
    -video_size 640x480 -framerate 30 -i "$(wait_host_node 10)" -frames:v 30 -c:v copy -f mjpeg \
    "$CAPTURES/ffmpeg.raw"
stop camera
keep_capture ffmpeg
need "the function goes" gadget down
need "the function comes up with NV12" gadget up --nv12
need "the daemon opens its node again" wait_log 20 "$SHARE/daemon.log" 'added device: /dev/video' 2
stream nv12 NV12 640x480 30
finish
