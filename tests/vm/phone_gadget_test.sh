#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# The function as the phone's guide has init make it, beside a board's own lines: the kernel takes every
# line, the service reads it as a user of its own, the host sees the formats in the order that the service
# counts in. Runs in the test machine.
. "$(dirname "$0")/lib.sh"
g1=/config/usb_gadget/g1
uvc=$g1/functions/uvc.0
guide=$ROOT/docs/phone.md

# A board's own lines around the guide's in its "on boot": the folder is for root alone, and the property
# comes last. It is 1 where init binds the gadget, 2 where a HAL does.
before="    mkdir $g1 0770 root root\n    mkdir $g1/strings/0x409\n    mkdir $g1/configs/b.1
    mkdir $g1/configs/b.1/strings/0x409\n    write $g1/idVendor 0x18d1"
after='    setprop sys.usb.configfs'

# make_board CONFIGFS: init's file of such a board, with the guide's lines in it.
make_board() {
    "$ROOT/tests/device/guide_init" "$guide" "${before//$'\n'/\\n}" "$after $1" >/run/init.rc
}

# init FILE STEP...: what init does at those events and properties.
init() {
    "$KORVANE_BUILD/tests/init_rc" run "$1" sys.usb.controller=dummy_udc.0 "${@:2}"
}

# What runs a command as init runs the service: a user who owns nothing here, and no capabilities.
as_service=(setpriv --reuid 1047 --regid 1006 --clear-groups --bounding-set=-all --inh-caps=-all
    prlimit --nofile=1024:1024)

start_service() {
    start "$1" "${as_service[@]}" "$KORVANE_BUILD/bin/korvane.hardware.camera.desktop@2.0-service"
}

ended() {
    ! running "$1"
}

# ueventd's part: "/dev/video* 0660 system camera".
own_node() {
    local node
    node=$(wait_gadget_node 10) && chown 1000:1006 "$node" && chmod 0660 "$node"
}

need "has the kernel's gadgets" modprobe -a libcomposite uvcvideo
chmod 0666 /dev/hwbinder
# As the same user: only root and its own may register with it.
start hwservicemanager "${as_service[@]}" "$KORVANE_BUILD/bin/hwservicemanager"

# ---- a board that lets nobody into its folder ---------------------------------------------------
make_board 1
grep -v chmod /run/init.rc >/run/closed.rc
{
    echo 'on boot'
    grep chmod /run/init.rc
} >/run/step.rc
need "takes every line that makes the function, and one that binds it" \
    init /run/closed.rc boot sys.usb.config=uvc
check_equal "has both intervals of a size" "333333 666666 " \
    "$(tr '\n' ' ' <$uvc/streaming/uncompressed/u/480p/dwFrameInterval)"
check "gives the node to the service's group" own_node
check_not "lets the service's user not in without the guide's step" "${as_service[@]}" cat $uvc/streaming_interval
start_service shut_out
check "has the service say what it can't read" \
    wait_log 30 "$SHARE/shut_out.log" 'UVC-Config.*uvc\.0/.*\(Permission denied\), cannot go on'
check "has the service end, to be started again by init" wait_for 30 ended shut_out
stop shut_out
check "takes the guide's step" init /run/step.rc boot
check "lets the service's user in with it" "${as_service[@]}" cat $uvc/streaming_interval

# ---- the service on it --------------------------------------------------------------------------
start_service daemon
need "enumerates once the service has opened the node" wait_host_node 30
host=$(host_node)
check_equal "shows the host the formats, sizes and rates" \
"[0]: 'YUYV' 640x480 30.000 15.000
[1]: 'MJPG' 1280x720 30.000 1920x1080 30.000" \
    "$(v4l2-ctl -d "$host" --list-formats-ext | awk '
        /\[[0-9]\]:/ {if (line) print line; line = $1 " " $2}
        /Size:/ {line = line " " $3}
        /Interval:/ {sub(/.*\(/, ""); sub(/ fps.*/, ""); line = line " " $0}
        END {print line}')"
# choose WIDTH HEIGHT FOURCC: what the host has after it asked for that.
choose() {
    v4l2-ctl -d "$host" --set-fmt-video="width=$1,height=$2,pixelformat=$3" >/dev/null &&
        v4l2-ctl -d "$host" --get-fmt-video | awk '/Width/ {size = $3} /Pixel/ {print size, $4}'
}
check_equal "agrees on the largest MJPEG" "1920/1080 'MJPG'" "$(choose 1920 1080 MJPG)"
check_equal "agrees on the smaller MJPEG" "1280/720 'MJPG'" "$(choose 1280 720 MJPG)"
check_equal "agrees on YUYV" "640/480 'YUYV'" "$(choose 640 480 YUYV)"
check_not "has nothing to complain of" grep -E 'UVC-Config *E|cannot go on|Invalid f' "$SHARE/daemon.log"

# ---- there and back -----------------------------------------------------------------------------
check "unbinds by the lines for none" init /run/init.rc sys.usb.configfs=1 sys.usb.config=none
check_equal "is bound to nothing, with nothing in its configuration" " " \
    "$(cat $g1/UDC) $(find $g1/configs/b.1 -type l)"
check "goes away at the host" wait_for 10 eval '! host_node'
check "outlives that with the service" running daemon
stop daemon
check_equal "says the state that the framework waits for" "sys.usb.state: uvc" \
    "$(init /run/init.rc sys.usb.configfs=1 sys.usb.config=uvc '?sys.usb.state' | tail -n 1)"
check "gives the new node to the service's group" own_node
start_service daemon
check "comes back" wait_host_node 30
stop daemon
check "takes the lines for none once more" init /run/init.rc sys.usb.configfs=1 sys.usb.config=none
rmdir $g1/configs/b.1/strings/0x409
need "removes it" gadget down

# ---- a board with a gadget HAL ------------------------------------------------------------------
make_board 2
check_equal "makes the function, and leaves the binding to the HAL" \
    "boot: some commands
sys.usb.config=uvc: 0 commands" \
    "$(init /run/init.rc boot sys.usb.config=uvc | sed -n 's/^boot: [1-9][0-9]*/boot: some/; /^boot\|config=/p')"
check "lets the service's user in at once" "${as_service[@]}" cat $uvc/streaming_interval
finish
