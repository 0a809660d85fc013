#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# clients_test.sh SCENARIO...: clients that lie, sleep or take all they can get, one after the other;
# each must leave the daemon as it was. "all" stands for all of them. Runs in the test machine.
# shellcheck source-path=SCRIPTDIR disable=SC2034
. "$(dirname "$0")/../vm/lib.sh"
. "$(dirname "$0")/../vm/host.sh"
. "$(dirname "$0")/lib.sh"

scenarios=(nested descriptors listeners again memory sideband silent random random_streaming fight
    fences fences_egl)
steps=(registered event started configured created taken connected dequeued requested queued streaming)
for step in "${steps[@]}"; do
    scenarios+=("kill_$step" "stop_$step")
done

# ---- calls --------------------------------------------------------------------------------------

nested() {
    check "nested: sixty-four calls are served, the next one is refused" attack 60 nested
}

descriptors() {
    check "descriptors: a call that brings 1000 is refused" attack 30 descriptors 1000
}

# LISTENERS: how many.
listeners() {
    local begin
    check "listeners: 64 of ${LISTENERS:-20000} are accepted" attack 300 listeners "${LISTENERS:-20000}"
    begin=${EPOCHREALTIME/./}
    check "listeners: the register answers at once when they are dead" attack 2 find
    echo "      after $(((${EPOCHREALTIME/./} - begin) / 1000)) ms"
}

again() {
    attacker again again 20000
    check "again: a callback may be registered again and again" \
        wait_log 200 "$SHARE/again.log" 'registered 20000 times'
    check "again: which costs nothing" wait_for 10 has_memory
    stop again KILL
}

random() {
    local seed
    for seed in {1..5}; do
        check "random: seed $seed" attack 120 random "$seed"
    done
}

# The surface is one of the objects that are called.
random_streaming() {
    local seed
    start_camera
    start_capture MJPG 640x480
    check "random: a stream runs" wait_log 20 "$daemon_log" 'Registering surface ptr: 0x'
    for seed in {11..15}; do
        check "random: seed $seed beside a stream" attack 120 random "$seed"
    done
    stop capture
    stop camera KILL
}

# ---- the stream's queue -------------------------------------------------------------------------

# The attacker's camera: NAME REGISTERED-LINE ARGUMENTS...
bad_camera() {
    local name=$1
    attacker "$@"
    check "$name: it registers" wait_log 20 "$SHARE/$name.log" '^registered$'
    start_capture MJPG 640x480
}

# shared MB: the whole machine's shared memory, whoever has it mapped.
shared() {
    awk '/^Shmem:/ {print int($2 / 1024)}' /proc/meminfo
}

shared_is_below() {
    [ "$(shared)" -lt "$1" ]
}

memory() {
    local before
    before=$(shared)
    bad_camera memory memory
    check "memory: the queue gives 512 MB and no more" wait_log 120 "$SHARE/memory.log" '^holding$'
    check_not "memory: six of its buffers are written" shared_is_below $((before + 380))
    stop memory KILL
    check "memory: the daemon notices that their owner has died" \
        wait_log 10 "$daemon_log" 'The producer has died: disconnecting it'
    check "memory: and gives them back while the stream goes on" \
        wait_for 10 shared_is_below $((before + 32))
    stop capture
}

sideband() {
    bad_camera sideband sideband
    check "sideband: a live queue keeps one" wait_log 30 "$SHARE/sideband.log" 'has a hundred'
    stop capture
    check "sideband: a queue that is no more takes none" wait_log 30 "$SHARE/sideband.log" '^refused$'
    check "sideband: and keeps none, though its end is held" \
        wait_for 10 has_descriptors "$descriptors"
    stop sideband KILL
}

fight() {
    local seed
    start_camera
    for seed in 1 2; do
        attacker "fight$seed" fight $seed
    done
    start_capture MJPG 640x480
    for seed in 1 2; do
        check "fight: client $seed makes thousands of calls" \
            wait_log 120 "$SHARE/fight$seed.log" '^calls 3000$|^WRONG'
        check_not "fight: client $seed finds the daemon there" grep WRONG "$SHARE/fight$seed.log"
    done
    stop fight1 KILL
    stop fight2 KILL
    stop capture
    stop camera KILL
}

# never_signals NAME API FRAMES: frames that are never finished, at least so many.
never_signals() {
    bad_camera "$1" fences "$2"
    check "$1: its frames are taken" wait_log 30 "$SHARE/$1.log" "^queueing $3\$"
    stop capture
    check "$1: it learns that the stream has ended" wait_log 20 "$SHARE/$1.log" '^over$'
    stop "$1" KILL
}

# Nobody waits for the fence of a camera's frame.
fences() {
    never_signals fences 4 20
}

# An EGL producer is made to wait for the one before, on the service's own thread.
fences_egl() {
    never_signals fences_egl 1 2
}

# ---- clients that don't answer ------------------------------------------------------------------

unbind_in_time() {
    timeout 10 "$ROOT/vm/gadget" unbind
}

silent() {
    local opened
    attacker silent silent 3
    check "silent: it registers" wait_log 20 "$SHARE/silent.log" '^registered$'
    start_capture MJPG 640x480
    check "silent: it gets the event" wait_log 20 "$SHARE/silent.log" 'silent at .*stream-start'
    check "silent: unbinding waits no longer than the event does" unbind_in_time
    stop capture
    opened=$(grep -c 'added device' "$daemon_log")
    check "silent: the function is bound again" gadget bind
    check "silent: and the daemon opens its node" \
        wait_log 20 "$daemon_log" 'added device' $((opened + 1))
    stop silent KILL
}

# at_step STEP KILL|STOP
at_step() {
    bad_camera camera_step camera "$1:$2"
    check "$2 at $1: it gets there" wait_log 30 "$SHARE/camera_step.log" "^at $1\$"
    if [ "$2" = STOP ]; then
        read -rt 5 -u "$never"
        kill -CONT "${pids[camera_step]}"
        check "stopped at $1: it goes on" wait_log 20 "$SHARE/camera_step.log" '^going on$'
    fi
    stop capture
    stop camera_step KILL
}

run_scenario() {
    case $1 in
        kill_*) at_step "${1#kill_}" KILL ;;
        stop_*) at_step "${1#stop_}" STOP ;;
        *) "$1" ;;
    esac
}

run_scenarios "$@"
