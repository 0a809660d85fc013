#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# What the kernel calls a camera reaches the host: vivid, the kernel's virtual camera, through a
# GStreamer pipeline. Runs in the test machine; vivid_after.sh looks at the pictures natively.
. "$(dirname "$0")/lib.sh"
. "$(dirname "$0")/host.sh"

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
check "the host receives what vivid shows as YUYV" capture yuyv YUYV 640x480 15 20 90
keep_capture yuyv
stop camera
start_camera --kind 1 --source "v4l2src device=$camera"
need "the camera registers as the launcher" wait_log 20 "$SHARE/daemon.log" 'Registering client 1'
check "the host receives what vivid shows as MJPEG" capture mjpeg MJPG 640x480 30 60 90
keep_capture mjpeg
finish
