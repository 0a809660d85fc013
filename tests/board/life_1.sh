# SPDX-License-Identifier: Apache-2.0
# What a webcam on a board has to survive: it comes back by itself each time.
. /run/host/lib.sh
. /run/host/board.sh

need "the packages install" install_packages /run/host/packages
need "the host sees a webcam" enumerated_within 30
need "with a moving picture" picture
hear_keeper

# event NAME COMMAND...: COMMAND ends the camera at the host, or lets it end; the webcam comes back.
event() {
    local name=$1 before
    shift
    before=$(host_camera)
    start=$(now_ms)
    "$@" >/run/event.log 2>&1 || fail "$name: happens" "$(cat /run/event.log)"
    wait_for 10 gone_or_other "$before"
    back "$name" "$start"
}

# kept NAME COMMAND...: the same, and it is the keeper that must bring it back in time.
kept() {
    event "$@"
    served_in_time "$1" "$start"
}

# host_camera: which one the host has: its number on the bus grows with each new one.
host_camera() {
    local node
    node=$(host_node) || return 0
    readlink -f "/sys/class/video4linux/$(basename "$node")/device/.."
    cat "/sys/class/video4linux/$(basename "$node")/device/../devnum"
}

gone_or_other() {
    [ "$(host_camera)" != "$1" ] || [ -z "$(server)" ]
}

# suspend_host: the bus sleeps, as it does with a sleeping host, and wakes up again.
suspend_host() {
    local device
    device=$(readlink -f "/sys/class/video4linux/$(basename "$(host_node)")/device/..")
    echo 0 >"$device/power/autosuspend_delay_ms"
    echo auto >"$device/power/control"
    wait_for 10 grep -q suspended "$device/power/runtime_status" || cat "$device"/power/runtime_*
    wait_for 1 false
    echo on >"$device/power/control"
}

give_controller() {
    echo "$1" >/sys/bus/platform/drivers/dummy_udc/bind
}

take_controller() {
    echo "$1" >/sys/bus/platform/drivers/dummy_udc/unbind
}

# runs_again UNIT PID: as a process other than that.
runs_again() {
    local pid
    pid=$(main_pid "$1")
    [ "$pid" != 0 ] && [ "$pid" != "$2" ]
}

kill_unit() {
    kill -KILL "$(main_pid "$1")"
}

start=$(now_ms)
echo 1 >$port/disable
check "the cable is pulled" wait_for 20 not_enumerated
served_in_time "cable pulled" "$start"
start=$(now_ms)
echo 0 >$port/disable
back "cable" "$start"
address=$(lsusb -d 1d6b:0102 | sed -E 's,Bus ([0-9]+) Device ([0-9]+).*,\1/\2,')
kept "bus reset" usbreset "$address"
check_equal "the host sleeps and wakes up" "" "$(suspend_host 2>&1)"
back "host's suspend" "$(now_ms)"
kept "unbound function" "$(command -v korvane-gadget)" unbind
modprobe vivid n_devs=1 && udevadm settle
kept "foreign camera removed" modprobe -r vivid

take_controller dummy_udc.0
check "the controller goes: no webcam" wait_for 20 not_enumerated
before=$(switches korvane-keeper)
read -rt 3 -u "$never"
check_equal "the keeper sleeps while there is none" "$before" "$(switches korvane-keeper)"
start=$(now_ms)
give_controller dummy_udc.0
served_in_time "controller returned" "$start"
back "controller returned" "$start"

# begun UNIT: when its program was started, in us since the boot.
begun() {
    systemctl show -P ExecMainStartTimestampMonotonic "$1"
}
in_order() {
    [ "$(main_pid korvane-desktop-camera)" != "$served_by" ] &&
        [ "$(begun korvane-hwservicemanager)" -lt "$(begun korvane-desktop-camera)" ] &&
        [ "$(begun korvane-desktop-camera)" -lt "$(begun korvane-camera)" ]
}
served_by=$(main_pid korvane-desktop-camera)
event "korvane-hwservicemanager killed" kill_unit korvane-hwservicemanager
check "it took its clients through a restart in order" wait_for 20 in_order
event "korvane-desktop-camera killed" kill_unit korvane-desktop-camera
# The host keeps its camera without these two.
for unit in korvane-camera korvane-keeper; do
    killed=$(main_pid "$unit")
    start=$(now_ms)
    kill_unit "$unit"
    check "$unit killed: runs again" wait_for 20 runs_again "$unit" "$killed"
    back "$unit killed" "$start"
done
check_equal "no unit has failed" "" "$(systemctl --failed --plain --no-legend)"

# ---- while a stream runs ------------------------------------------------------------------------

node=$(host_node)
start stream v4l2-ctl -d "$node" --set-fmt-video=width=640,height=480,pixelformat=YUYV \
    --stream-mmap=4 --stream-count=100000 --stream-to=/dev/null
wait_log 30 "$SHARE/stream.log" '<<<' || true
bound=$(journalctl -u korvane-keeper | grep -c 'bound the function')
udevadm trigger --subsystem-match=video4linux --action=change && udevadm settle
restarted=$(now_ms)
while [ $(($(now_ms) - restarted)) -lt 3000 ]; do systemctl restart korvane-keeper && break; done
read -rt 5 -u "$never"
check "a stream goes on whatever the keeper hears, even when it starts anew" running stream
check_equal "and the function was not bound again" "$bound" \
    "$(journalctl -u korvane-keeper | grep -c 'bound the function')"

start=$(now_ms)
check "an upgrade over a running stream" install_packages /run/host/newer
check_equal "has the newer version" 9.9.9 "$(dpkg-query -f '${Version}' -W korvane-webcam)"
stop stream
back "upgrade" "$start"
check_equal "no program of the older version runs" "" "$(ls -l /proc/[0-9]*/exe 2>/dev/null | grep deleted)"
finish
