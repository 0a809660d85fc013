#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# What the kernel calls a camera reaches the host: vivid, the kernel's virtual camera, through a
# GStreamer pipeline. Runs in the test machine; vivid_after.sh looks at the pictures natively.
. "$(dirname "$0")/lib.sh"
. "$(dirname "$0")/host.sh"

# receive NAME FOURCC TIME: a stream's frames until enough of them are vivid's; until it gives the first,
# which takes this machine a while, the host sees a card. It gives its first for the TIMEth time.
receive() {
    film "$1" "$2" 640x480
    check "the camera has vivid's pictures for $2" \
        wait_log 60 "$SHARE/camera.log" 'from the source is ' "$3"
    check "the host receives what vivid shows as $2" moves 25
    stop capture
    keep_capture "$1"
}

need "the kernel has its virtual camera" modprobe vivid n_devs=1 node_types=0x1
camera=$(vivid_node) || fail "vivid has a node"
v4l2-ctl -d "$camera" --set-ctrl test_pattern=0 --set-ctrl horizontal_movement=3 >/dev/null
start_service_manager
need "the function comes up" gadget up
start_daemon
need "the daemon opens its node, not vivid's" wait_log 20 "$SHARE/daemon.log" \
    "added device: $(gadget_node)"
start_camera --source "v4l2src device=$camera"
need "the camera registers" wait_log 60 "$SHARE/daemon.log" 'Registering client 3'
receive yuyv YUYV 1
stop camera
start_camera --kind 1 --source "v4l2src device=$camera"
need "the camera registers as the launcher" wait_log 20 "$SHARE/daemon.log" 'Registering client 1'
receive mjpeg MJPG 2
finish
