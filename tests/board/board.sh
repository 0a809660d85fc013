# shellcheck shell=bash
# SPDX-License-Identifier: Apache-2.0
# What the scripts that run on a board share: it is the webcam and, through the looped controller, its
# own host. Sourced after lib.sh.
export SYSTEMD_COLORS=0 SYSTEMD_PAGER='' DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8
port=/sys/bus/usb/devices/usb1/1-0:1.0/usb1-port1
g1=/config/usb_gadget/g1
board_ms=10  # a board starts a program in this time, at least

now_ms() {
    local up
    read -r up _ </proc/uptime
    echo "${up/./}0"
}

# took NAME START_MS: prints how long ago that was.
took() {
    printf 'time  %-44s %6d ms\n' "$1" $(($(now_ms) - $2))
}

# measure: how much slower than a board this one is just now, in percent, 100 at least: by how long it
# takes to start programs, of which most of what happens here consists. Sets `slowness`, and
# `slowness_before` to what it was the last time.
measure() {
    local start percent
    start=$(now_ms)
    for _ in {1..40}; do /bin/true; done
    percent=$((($(now_ms) - start) * 100 / (40 * board_ms)))
    slowness_before=${slowness:-100}
    slowness=$((percent > 100 ? percent : 100))
}
measure

# within NAME START_MS END_MS LIMIT_MS: it took no longer than that; a board that is slower than a real one,
# before or after, gets that much more time.
within() {
    local took=$(($3 - $2)) slow
    measure
    slow=$((slowness > slowness_before ? slowness : slowness_before))
    printf 'time  %-44s %6d ms of %d (slowness %d %%)\n' "$1" $took $(($4 * slow / 100)) "$slow"
    check "$1: within $(($4 / 1000)) s" [ $took -le $(($4 * slow / 100)) ]
}

# hear_keeper: records what the keeper says from now on.
hear_keeper() {
    rm -f "$SHARE/keeper.log"
    start keeper journalctl -u korvane-keeper -n 0 -f -o short-monotonic --no-hostname
    wait_path 10 "$SHARE/keeper.log"
}

# keeper_said SINCE_MS PATTERN: when the keeper first said so after that.
keeper_said() {
    awk -v since="$1" -v pattern="$2" '$0 ~ pattern {
        sub(/^\[ */, ""); ms = int($1 * 1000)
        if (ms >= since) {print ms; found = 1; exit}
    } END {exit !found}' "$SHARE/keeper.log"
}

# served_in_time NAME START_MS: from the moment when that was possible the function was bound, its node
# opened and the keeper told of it, within two seconds.
served_in_time() {
    if wait_for 120 keeper_said "$2" 'is served by process'; then
        within "$1: served again" "$2" "$(keeper_said "$2" 'is served by process')" 2000
    else
        fail "$1: served again" "$(status_of_all)"
    fi
}

# install_packages FOLDER: as a user does, but for the pictures: the test card, since the only camera
# here is the webcam itself.
install_packages() {
    mkdir -p /etc/korvane
    echo 'source = card' >/etc/korvane/camera.conf
    apt-get install -y -q -o Dpkg::Options::=--force-confold "$1"/korvane-*.deb >"$SHARE/apt.log" 2>&1 || { tail -n 20 "$SHARE/apt.log"; return 1; }
}

# picture [SIZE]: a moving one reaches the host: ten frames of YUYV, of which at least five differ.
picture() {
    local size=${1:-640x480} node file=/run/picture differ
    node=$(wait_host_node 60) || return 1
    rm -f "$file" && timeout $((60 * PATIENCE)) v4l2-ctl -d "$node" --stream-mmap=4 --stream-count=10 \
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

# enumerated_within SECONDS: the same within that time; if not, prints what runs instead.
enumerated_within() {
    wait_for "$1" enumerated || { status_of_all; return 1; }
}

not_enumerated() {
    ! host_node >/dev/null
}

# back NAME START_MS [SECONDS]: the webcam comes back by itself, and a picture with it.
back() {
    if wait_for "${3:-120}" enumerated; then
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
