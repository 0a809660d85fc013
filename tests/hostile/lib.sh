# shellcheck shell=bash disable=SC2034,SC2154
# SPDX-License-Identifier: Apache-2.0
# What the scripts here share: attackers, and how the daemon must be after them. They source it last,
# after tests/vm/lib.sh and host.sh, and run in the test machine.

daemon_log=$SHARE/daemon.log
# How much more private memory, in kB, is no growth: the allocator keeps some of what it had.
allowed_growth=512

# up: starts everything, and streams once.
up() {
    # As on a board that lets everybody in.
    chmod 666 /dev/hwbinder
    cp "$KORVANE_BUILD/tests/hostile-client" /run/hostile-client
    start_service_manager
    need "the function comes up" gadget up
    start_daemon
    need "the daemon opens its node" wait_log 20 "$daemon_log" 'added device: /dev/video'
    need "the daemon registers" wait_log 20 "$daemon_log" 'Registered Camera Desktop HAL service success!'
    need "a stream works" good_stream first
}

# good_stream NAME: a camera comes, the host gets thirty frames of it, and each of them is right.
good_stream() {
    local name=$1 before status=0
    before=$(grep -c 'Registering client 3' "$daemon_log")
    rm -f "$SHARE/frames"
    start_camera --log "$SHARE/frames"
    wait_log 20 "$daemon_log" 'Registering client 3' $((before + 1)) &&
        capture "$name" MJPG 640x480 30 30 40 &&
        "$KORVANE_BUILD/bin/testcard-check" --format MJPG --size 640x480 --log "$SHARE/frames" \
            --times "$CAPTURES/$name.times" "$CAPTURES/$name.raw" || status=$?
    rm -f "$CAPTURES/$name".*
    before=$(grep -c 'Service died for 3' "$daemon_log")
    stop camera
    wait_log 10 "$daemon_log" 'Service died for 3' $((before + 1)) || status=1
    return $status
}

# attacker NAME COMMAND...: an attack that goes on beside the script; `stop NAME KILL` ends it.
attacker() {
    local name=$1
    shift
    : >"$SHARE/$name.log"
    start "$name" as_nobody /run/hostile-client "$@"
}

# attack SECONDS COMMAND...: an attack that ends by itself, with status 0 if it went as it must.
attack() {
    local limit=$1
    shift
    timeout "$limit" setpriv --reuid=65534 --regid=65534 --clear-groups /run/hostile-client "$@"
}

# exec: the process that `start` knows must be the attacker itself.
as_nobody() {
    exec setpriv --reuid=65534 --regid=65534 --clear-groups "$@"
}

# remember: how the daemon is now, with nothing going on.
remember() {
    descriptors=$(daemon_descriptors)
    memory=$(daemon_private)
    daemon_pid=${pids[daemon]}
}

has_descriptors() {
    [ "$(daemon_descriptors)" = "$1" ]
}

has_memory() {
    [ $(($(daemon_private) - memory)) -le $allowed_growth ]
}

# as_before NAME: the daemon lives, is as it was, and streams.
as_before() {
    need "$1: the daemon lives" kill -0 "$daemon_pid"
    check "$1: its $descriptors descriptors are what they were" wait_for 10 has_descriptors "$descriptors"
    check "$1: so is its memory" wait_for 10 has_memory
    echo "      $(daemon_descriptors) descriptors, $(($(daemon_private) - memory)) kB more"
    check "$1: the next stream has every frame" good_stream after
}

run_scenario() {
    "$1"
}

# run_scenarios SCENARIO...: those, or for "all" each of `scenarios`, and the script's end.
run_scenarios() {
    local scenario known=" ${scenarios[*]} "
    [ "$*" != all ] || set -- "${scenarios[@]}"
    for scenario in "$@"; do
        [[ $known == *" $scenario "* ]] && continue
        echo "${0##*/}: no scenario $scenario; there are:$known" >&2
        finished=1
        exit 2
    done
    up
    for scenario in "$@"; do
        remember
        run_scenario "$scenario"
        as_before "$scenario"
    done
    finish
}
