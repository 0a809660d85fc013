#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# frame_counts.sh times|notes: what the daemon takes for each frame of a real stream, beside bare_frames,
# which moves the same bytes through the same node and has no service between: the processor time of its
# threads, or what they ask of the kernel and of the heap. Each needs a machine of its own, since noting
# takes time. Times need one whose clock is its instructions, since any other measures the host; notes
# one with two processors, on which threads wait for each other's locks as they do elsewhere. Runs in the
# test machine; leaves for PROGRAM daemon and bare $SHARE/PROGRAM-FORMAT.trace or
# PROGRAM-FORMAT.WINDOW.threads, which bench/machine/count reads.
# shellcheck source=tests/vm/lib.sh
. "$(dirname "$0")/../../tests/vm/lib.sh"
. "$(dirname "$0")/../../tests/vm/host.sh"

tracing=/sys/kernel/tracing
libc=/lib/x86_64-linux-gnu/libc.so.6

# probe NAME: from now on the event heap/NAME is a call of the C library's function NAME.
probe() {
    local offset
    offset=$(nm -D "$libc" | awk -v name="$1@@" 'index($3, name) == 1 {print $1}')
    echo "p:heap/$1 $libc:0x$offset" >>$tracing/uprobe_events
}

set_up_tracing() {
    mountpoint -q $tracing || mount -t tracefs none $tracing || return 1
    echo 16384 >$tracing/buffer_size_kb
    echo 0 >$tracing/tracing_on
    probe malloc && probe calloc && probe realloc
    # A process that makes no calls: if none is set, everybody is noted.
    echo 2 >$tracing/set_event_pid
    echo 1 >$tracing/events/raw_syscalls/sys_enter/enable
    echo 1 >$tracing/events/heap/enable
}

# threads_of PROGRAM: every thread that it has, and no other process.
# shellcheck disable=SC2154
threads_of() {
    local task
    for task in "/proc/${pids[$1]}"/task/*; do echo -n "${task##*/} "; done
}

# times PROGRAM STAMP: for each thread a line of STAMP, its number, its name, its processor time in
# nanoseconds, how often it has waited and how often it had to leave a processor to another; then one of
# the frames that the host has received.
times() {
    local task name ns switches
    switches='voluntary_ctxt_switches:[[:space:]]*([0-9]+)[[:space:]]*non'
    switches+='voluntary_ctxt_switches:[[:space:]]*([0-9]+)'
    for task in "/proc/${pids[$1]}"/task/*; do
        read -r name <"$task/comm"
        read -r ns _ <"$task/schedstat"
        [[ $(<"$task/status") =~ $switches ]]
        echo "$2 ${task##*/} ${name// /_} $ns ${BASH_REMATCH[1]} ${BASH_REMATCH[2]}"
    done
    echo "$2 frames $(received)"
}

# measure PROGRAM FORMAT: its threads' time, over some windows of some frames.
measure() {
    local window
    for window in $(seq "$windows"); do
        {
            times "$1" begin
            moves "$frames" || return 1
            times "$1" end
        } >"$SHARE/$1-$2.$window.threads"
    done
}

# note PROGRAM FORMAT: what its threads do for some frames, enough that one call more at either end of the
# window doesn't count.
note() {
    threads_of "$1" >>$tracing/set_event_pid
    echo >$tracing/trace
    echo 1 >$tracing/tracing_on
    moves $((4 * frames))
    echo 0 >$tracing/tracing_on
    cp $tracing/trace "$SHARE/$1-$2.trace"
}

# stream PROGRAM FORMAT FOURCC SIZE END: the host takes a stream, of which PROGRAM is measured, and whose
# end it logs like END.
stream() {
    watch "$3" "$4"
    need "$1-$2: frames arrive" moves 30
    case $what in
        times) check "$1-$2: its threads' time is taken" measure "$1" "$2" ;;
        notes) check "$1-$2: the kernel notes what it does" note "$1" "$2" ;;
    esac
    stop capture
    need "$1-$2: the stream has ended" wait_log 20 "$SHARE/$1.log" "$5" "$runs"
}

no_host_node() {
    ! host_node
}

# compare FORMAT FOURCC SIZE: the daemon, then the bare program with frames as long as the daemon's.
compare() {
    local bytes
    start_daemon
    need "$1: the daemon opens its node" wait_log 20 "$SHARE/daemon.log" 'added device: /dev/video' \
        $((++runs))
    start_camera
    need "$1: a camera is there" wait_log 20 "$SHARE/daemon.log" 'Registering client 3' $runs
    stream daemon "$@" 'Registering surface ptr: .nil.'
    stop camera
    stop daemon
    need "$1: the daemon's camera goes" wait_for 20 no_host_node
    # shellcheck disable=SC2154
    bytes=$(awk '/cap dqbuf:/ && match($0, /bytesused: [0-9]+/) {
        bytes += substr($0, RSTART + 11, RLENGTH - 11); frames++ }
        END { print int(bytes / frames) }' "$host_log")
    start bare "$KORVANE_BUILD/bench/bare_frames" "$(wait_gadget_node 10)" "$2" "${3%x*}" "${3#*x}" \
        "$bytes"
    stream bare "$@" 'the stream has ended'
    stop bare
    need "$1: so does the bare program's" wait_for 20 no_host_node
}

what=$1 runs=0 frames=${FRAMES:-30} windows=${WINDOWS:-4}
[ "$what" = times ] || need "the kernel notes calls" set_up_tracing
start_service_manager
need "the function comes up" gadget up
compare MJPEG MJPG 1280x720
compare YUYV YUYV 640x480
finish
