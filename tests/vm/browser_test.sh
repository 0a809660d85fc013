#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# The webcam's hosts are programs that people use: a browser, GStreamer, OpenCV, and v4l2-compliance,
# which uses what the others leave out. Runs in the test machine, by scripts/browser;
# browser_after.sh looks at what they received.
. "$(dirname "$0")/lib.sh"
. "$(dirname "$0")/host.sh"
here=$ROOT/tests/vm/browser

# browse: the browser plays the webcam for ten seconds. Says what it reports.
browse() {
    start server python3 "$here/serve.py" "$SHARE"
    # Without sandbox, since it is root; with as few processes and services as it can do with, since
    # each costs the emulated processors seconds.
    start browser chromium-headless-shell --no-sandbox --no-zygote --disable-gpu \
        --disable-dev-shm-usage --disable-background-networking --renderer-process-limit=1 \
        --enable-features=NetworkServiceInProcess2 --use-fake-ui-for-media-stream \
        --autoplay-policy=no-user-gesture-required --remote-debugging-port=0 \
        --user-data-dir=/run/profile 'http://localhost:8000/?seconds=10'
    wait_log 400 "$SHARE/server.log" '^\{' || return 1
    stop browser
    cat "$SHARE/server.log"
}

# reported KEY: a number out of the browser's report.
reported() {
    grep -oE "\"$1\":[0-9.]+" "$SHARE/server.log" | cut -d: -f2
}

# by_gstreamer NAME COUNT CAPS: captures with v4l2src.
by_gstreamer() {
    timeout 60 gst-launch-1.0 -q v4l2src "device=$(host_node)" "num-buffers=$2" ! "$3" ! \
        filesink "location=$CAPTURES/$1.raw"
}

# comply NODE: all tests of v4l2-compliance, with a stream in every format. Prints the places of those
# that fail; its report is kept.
comply() {
    timeout 240 v4l2-compliance -d "$1" -s >"$SHARE/compliance-${1##*/}.log" 2>&1
    grep -q '^Total' "$SHARE/compliance-${1##*/}.log" || echo "no end within four minutes"
    sed -nE 's/^\s*fail: (.*)$/\1/p' "$SHARE/compliance-${1##*/}.log" | sort -u
}

# What the tool says of any camera behind the kernel's UVC driver: it starts a stream through a second
# handle, which that driver answers with EBUSY before a frame flows, where the tool expects EINVAL.
drivers_own='v4l2-test-buffers.cpp(1345): node->streamon(q.g_type()) != EINVAL'

# by_compliance: nothing fails for the webcam but what fails for the kernel's own virtual camera,
# too (the tool is older than this kernel), and what is its host driver's.
by_compliance() {
    modprobe vivid n_devs=1 node_types=0x1 || return 1
    local only
    comply "$(host_node)" >/run/webcam
    comply "$(vivid_node)" >/run/vivid
    only=$(comm -23 /run/webcam /run/vivid | grep -vxF "$drivers_own" || true)
    echo "$only"
    [ -z "$only" ]
}

ip link set lo up
start_service_manager
need "the function comes up" gadget up
start_daemon
need "the daemon opens the node" wait_log 20 "$SHARE/daemon.log" 'added device: /dev/video'
start_camera --log "$SHARE/camera.frames"
need "the camera registers" wait_log 30 "$SHARE/camera.log" 'connected to the desktop'
need "the host has its node" wait_host_node 20

check "a browser plays the webcam" browse
cat "$SHARE/server.log"
check_equal "in the size it asked for" "640 480" "$(reported width) $(reported height)"
check "for ten seconds, frame after frame" test "$(reported frames)" -ge 30
check "and its picture moves" test "$(reported pictures)" -ge 3

check "GStreamer receives MJPEG" \
    by_gstreamer gst-mjpg 30 'image/jpeg,width=640,height=480,framerate=30/1'
keep_capture gst-mjpg
check "GStreamer receives YUYV" \
    by_gstreamer gst-yuyv 20 'video/x-raw,format=YUY2,width=640,height=480,framerate=15/1'
keep_capture gst-yuyv
check "OpenCV receives both" timeout 120 python3 "$here/opencv.py" "$(host_node)" "$CAPTURES/opencv"
keep_capture opencv
check "v4l2-compliance has no complaint" by_compliance
check "the daemon has survived them all" running daemon
finish
