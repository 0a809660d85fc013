#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# The function as the phone's guide has init make it: the kernel takes every line, the service reads
# it, the host sees the formats in the order that the service counts in. Runs in the test machine.
. "$(dirname "$0")/lib.sh"
g1=/config/usb_gadget/g1

# lines_of TRIGGER: the commands below "on TRIGGER..." in the guide.
lines_of() {
    awk -v trigger="on $1" '/^```/ {on = 0} /^on / {on = index($0, trigger) == 1; next}
        on && $1 !~ /^#/ && NF {print}' "$ROOT/docs/phone.md"
}

# Init writes a file with one system call and knows \n within quotes.
init_write() {
    local text=${2#\"}
    printf '%b' "${text%\"}" | dd of="$1" bs=4096 iflag=fullblock conv=notrunc status=none
}

# init_command LINE: as init runs it.
init_command() {
    local name first second
    read -r name first second <<<"$1"
    second=${second/'${sys.usb.controller}'/dummy_udc.0}
    case $name in
    mkdir) mkdir "$first" ;;
    symlink) ln -s "$first" "$second" ;;
    write) init_write "$first" "$second" ;;
    setprop) ;;
    *) echo "no command of init: $1"; return 1 ;;
    esac
}

# run_lines TRIGGER: each line of it, and how many there are.
run_lines() {
    local line count=0
    while read -r line; do
        init_command "$line" || { echo "fails: $line"; return 1; }
        count=$((count + 1))
    done < <(lines_of "$1")
    [ $count -gt 0 ] || echo "there are no lines of 'on $1'"
    [ $count -gt 0 ]
}

# What the platform's own init files leave behind.
make_platform_gadget() {
    modprobe libcomposite &&
        mkdir -p $g1/strings/0x409 $g1/configs/b.1/strings/0x409 &&
        echo 0x18d1 >$g1/idVendor && echo Phone >$g1/strings/0x409/product
}

need "has the platform's gadget" make_platform_gadget
modprobe uvcvideo
start_service_manager
start_daemon
check "takes every line that makes the function" run_lines 'boot'
check_equal "has both intervals of a size" "333333 666666 " \
    "$(tr '\n' ' ' <$g1/functions/uvc.0/streaming/uncompressed/u/480p/dwFrameInterval)"
check "takes every line that binds it" run_lines 'property:sys.usb.config=uvc'
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
finish
