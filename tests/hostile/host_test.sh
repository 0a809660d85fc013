#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# host_test.sh SCENARIO...: hosts that don't keep to the rules, and a kernel that says anything; each
# must leave the daemon as it was. "all" stands for all of them. Runs in the test machine.
# shellcheck source-path=SCRIPTDIR disable=SC2034
. "$(dirname "$0")/../vm/lib.sh"
. "$(dirname "$0")/../vm/host.sh"
. "$(dirname "$0")/lib.sh"

scenarios=(requests stages settings resets suspend port uevents unbound trees)

# ---- hosts --------------------------------------------------------------------------------------

# webcam: the webcam's folder on the host's bus.
webcam() {
    local device
    for device in /sys/bus/usb/devices/*; do
        [ -e "$device/bDeviceClass" ] && [ "$(<"$device/bDeviceClass")" != 09 ] || continue
        echo "$device"
        return
    done
    return 1
}

webcam_is_there() {
    webcam
}

# usb_node: its node, which is made if nobody else makes nodes here.
usb_node() {
    local device node major minor
    device=$(webcam) || return 1
    node=$(printf '/dev/bus/usb/%03d/%03d' "$(<"$device/busnum")" "$(<"$device/devnum")")
    if [ ! -e "$node" ]; then
        mkdir -p "${node%/*}"
        IFS=: read -r major minor <"$device/dev"
        mknod "$node" c "$major" "$minor"
    fi
    echo "$node"
}

# rebind: the function anew, and the daemon with it.
rebind() {
    gadget unbind
    bound
}

# bound: the function is bound, and the daemon opens its node.
bound() {
    local opened
    opened=$(grep -c 'added device' "$daemon_log")
    gadget bind && wait_log 20 "$daemon_log" 'added device' $((opened + 1))
}

# without_driver SCENARIO COMMAND...: without the host's driver, whose own node would come and go.
without_driver() {
    gadget unbind
    # Otherwise it comes back with the device.
    echo 'install uvcvideo /bin/false' >/etc/modprobe.d/hostile.conf
    check "$1: the host's driver goes" wait_for 10 modprobe -r uvcvideo
    gadget bind
    check "$1: the host sees the webcam" wait_for 20 webcam_is_there
    "${@:2}"
    rm /etc/modprobe.d/hostile.conf
    modprobe uvcvideo
    check "$1: the function is bound anew" rebind
}

# tried SCENARIO: by a host that keeps to no rules.
tried() {
    check "$1: the host tries it all" try_all "$1"
    sed 's/^/      /' "$SHARE/tried"
}

try_all() {
    timeout 250 "$KORVANE_BUILD/tests/hostile-host" "$1" "$(usb_node)" >"$SHARE/tried"
}

requests() {
    without_driver requests tried requests
}

stages() {
    without_driver stages tried stages
}

settings() {
    without_driver settings tried settings
}

resets() {
    without_driver resets tried resets
}

is_suspended() {
    [ "$(<"$(webcam)/power/runtime_status")" = suspended ]
}

suspend() {
    local device
    device=$(webcam)
    echo 0 >"$device/power/autosuspend_delay_ms"
    echo auto >"$device/power/control"
    check "suspend: the port sleeps" wait_for 20 is_suspended
    echo on >"$device/power/control"
    check_not "suspend: and wakes" is_suspended
}

# The port off and on. In mid-stream the host's driver has a node, which goes with the port, and which the daemon
# takes for its own then.
port() {
    local streams disable
    disable=$(readlink -f "$(webcam)/port/disable")
    need "port: there is a switch" test -w "$disable"
    without_driver port idle_port

    streams=$(grep -c 'got buffer with new dataSpace' "$daemon_log")
    start_camera
    start_capture MJPG 640x480
    check "port: a stream runs" wait_log 30 "$daemon_log" 'got buffer with new dataSpace' $((streams + 1))
    freeze_capture
    port_off_and_on streaming
    thaw_capture
    stop capture
    stop camera KILL
    check "port: the function is bound anew after the stream" rebind
}

idle_port() {
    local _
    for _ in {1..3}; do
        port_off_and_on idle
        check "port: the function is bound anew, idle" rebind
        check "port: the host sees the webcam again" wait_for 20 webcam_is_there
    done
}

# port_off_and_on WHEN: dummy_hcd does not report who is at a port that has power again.
port_off_and_on() {
    echo 1 >"$disable"
    check "port: off, $1" wait_for 10 no_webcam
    echo 0 >"$disable"
}

no_webcam() {
    ! webcam
}

# ---- the kernel ---------------------------------------------------------------------------------

long() {
    printf '%*s' "$1" '' | tr ' ' "$2"
}

# Nothing of it is an event of a node that there is.
uevents() {
    local _
    for _ in {1..20}; do
        raise_uevent 'add@'
        raise_uevent '@' 'ACTION=' 'SUBSYSTEM=' 'DEVNAME='
        raise_uevent 'add@/devices/x' ACTION=add SUBSYSTEM=video4linux
        raise_uevent 'add@/devices/x' ACTION=add SUBSYSTEM=video4linux DEVNAME=
        raise_uevent 'add@/devices/x' ACTION=add SUBSYSTEM=video4linux DEVNAME=video
        raise_uevent 'add@/devices/x' ACTION=add SUBSYSTEM=video4linux DEVNAME=../../etc/passwd
        raise_uevent 'add@/devices/x' ACTION=add SUBSYSTEM=video4linux DEVNAME=video99999999999
        raise_uevent 'add@/devices/x' ACTION=add SUBSYSTEM=video4linux "DEVNAME=$(long 1500 v)"
        raise_uevent 'remove@/devices/x' ACTION=remove SUBSYSTEM=video4linux
        raise_uevent 'remove@/devices/x' ACTION=remove SUBSYSTEM=video4linux DEVNAME=video777
        raise_uevent 'change@/x' ACTION=change SUBSYSTEM=android_usb
        raise_uevent 'change@/x' ACTION=change SUBSYSTEM=android_usb USB_STATE=
        raise_uevent 'change@/x' ACTION=change SUBSYSTEM=android_usb "USB_STATE=$(long 1500 D)"
        raise_uevent "$(long 1000 a)@$(long 900 /)"
        raise_uevent 'add@/x' ACTION ACTION= = == '=add' 'SUBSYSTEM=video4linux=video4linux'
    done
    check "uevents: the kernel's own still come" rebind
}

# In every state of a stream; lifecycle_test.sh has more of it.
unbound() {
    local state
    for state in idle capturing streaming; do
        [ $state = idle ] || start_capture MJPG 640x480
        if [ $state = streaming ]; then
            start_camera --log "$SHARE/unbound.frames"
            check "unbound: frames flow" wait_for 30 test -s "$SHARE/unbound.frames"
        fi
        [ $state = idle ] || freeze_capture
        check "unbound: at once while $state" timeout 10 "$ROOT/vm/gadget" unbind
        [ $state = idle ] || thaw_capture
        stop capture
        stop camera KILL
        check "unbound: and bound, after $state" bound
    done
}

# tree ATTRIBUTE CONTENT lives|ends [LINE]: the function with that attribute's content, which the daemon
# survives, or which ends it as it must, with its line.
tree() {
    local attribute=$function/$1 opened what=${2:0:20}
    what="'${what//$'\n'/ }' for ${1##*/}"
    printf %s "$2" >/run/attribute
    gadget unbind
    opened=$(grep -c 'added device' "$daemon_log")
    mount --bind /run/attribute "$attribute"
    gadget bind
    if [ "$3" = lives ]; then
        check "trees: $what is survived" \
            wait_log 20 "$daemon_log" 'added device' $((opened + 1))
    else
        check "trees: $what has its line" wait_log 20 "$daemon_log" "${1##*/}: $4"
        check "trees: and ends the daemon" wait_for 10 daemon_is_gone
    fi
    umount "$attribute"
    if [ "$3" = lives ]; then
        check "trees: as it was" rebind
        return
    fi
    stop daemon
    check_equal "trees: by an abort" 134 "$stopped"
    opened=$(grep -c 'added device' "$daemon_log")
    start_daemon
    check "trees: the next daemon opens the node" \
        wait_log 20 "$daemon_log" 'added device' $((opened + 1))
}

daemon_is_gone() {
    ! running daemon
}

# What configfs would never contain, put in its place. An attribute that is not a number ends the daemon, by
# design; another one then starts.
trees() {
    local function=/config/usb_gadget/g1/functions/uvc.0 frame wrong='no usable number'
    frame=$(cd "$function" && echo streaming/mjpeg/m/*/wWidth | cut -d ' ' -f 1)
    need "trees: there is a frame" test -e "$function/$frame"
    tree "${frame%/*}/dwFrameInterval" '' lives
    tree "${frame%/*}/dwFrameInterval" "$(seq 1 20000)" lives
    tree "$frame" 4294967295 lives
    tree "$frame" 0 lives
    tree streaming/uncompressed/u/guidFormat '' lives
    tree streaming/uncompressed/u/guidFormat "$(long 100000 x)" lives
    tree "$frame" '' ends "$wrong"
    tree "$frame" wide ends "$wrong"
    tree "$frame" 99999999999999999999999999 ends "$wrong"
    tree "${frame%/*}/dwFrameInterval" $'333333\nfast\n' ends "$wrong"
    tree streaming_maxpacket '' ends "$wrong"
    # Of the last of them.
    check "trees: the last daemon streams" good_stream trees
    remember
}

run_scenarios "$@"
