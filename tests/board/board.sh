# shellcheck shell=bash
# SPDX-License-Identifier: Apache-2.0
# What the scripts that run on a board share: it is the webcam and, through the looped controller, its
# own host. Sourced after lib.sh.
export SYSTEMD_COLORS=0 SYSTEMD_PAGER='' DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8
port=/sys/bus/usb/devices/usb1/1-0:1.0/usb1-port1
g1=/config/usb_gadget/g1

now_ms() {
    local up
    read -r up _ </proc/uptime
    echo "${up/./}0"
}

# took NAME START_MS: prints how long ago that was.
took() {
    printf 'time  %-44s %6d ms\n' "$1" $(($(now_ms) - $2))
}

# install_packages FOLDER: as a user does, but for the pictures: the test card, since the only camera
# here is the webcam itself.
install_packages() {
    mkdir -p /etc/korvane
    echo 'source = card' >/etc/korvane/camera.conf
    apt-get install -y -q -o Dpkg::Options::=--force-confold "$1"/korvane-*.deb >"$SHARE/apt.log" 2>&1 || { tail -n 20 "$SHARE/apt.log"; return 1; }
}

# picture [SIZE]: a moving one comes to the host: ten frames of YUYV, of which at least five differ.
picture() {
    local size=${1:-640x480} node file=/run/picture differ
    node=$(wait_host_node 60) || return 1
    rm -f "$file" && timeout 60 v4l2-ctl -d "$node" --stream-mmap=4 --stream-count=10 \
        --set-fmt-video="width=${size%x*},height=${size#*x},pixelformat=YUYV" \
        --stream-to="$file" >/run/picture.log 2>&1 || { tail -n 3 /run/picture.log; return 1; }
    [ "$(stat -c %s "$file")" = $((10 * ${size%x*} * ${size#*x} * 2)) ] ||
        { stat -c 'there are %s bytes' "$file"; return 1; }
    differ=$(split -b $((${size%x*} * ${size#*x} * 2)) --filter='md5sum' "$file" | sort -u | wc -l)
    [ "$differ" -ge 5 ] || { echo "of 10 frames only $differ differ"; return 1; }
}

# picture_within SECONDS: as soon as there is one.
picture_within() {
    wait_for "$1" picture || picture
}

# server: the process that has the gadget's node open; fails if none has.
server() {
    local node pid
    node=$(gadget_node) || return 1
    for pid in $(pgrep -f desktop@2.0-service); do
        ! find "/proc/$pid/fd" -lname "$node" | grep -q . || { echo "$pid"; return; }
    done
    return 1
}

# enumerated: the host has the camera.
enumerated() {
    host_node >/dev/null && server >/dev/null
}

not_enumerated() {
    ! host_node >/dev/null
}

# back NAME START_MS [SECONDS]: the webcam comes back by itself, and a picture with it.
back() {
    if wait_for "${3:-30}" enumerated; then
        took "$1: back at the host" "$2"
        check "$1: the picture moves again" picture
    else
        fail "$1: back by itself" "$(status_of_all)"
    fi
}

status_of_all() {
    systemctl --no-pager --lines=3 status 'korvane*' 2>&1
    journalctl --no-pager -u 'korvane*' -n 30 -o short-monotonic
}

main_pid() {
    systemctl show -P MainPID "$1"
}

# switches UNIT: how often its program has left a processor so far.
switches() {
    awk '/_ctxt_switches/ {sum += $2} END {print sum}' "/proc/$(main_pid "$1")"/task/*/status
}
