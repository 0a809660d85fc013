#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# What the daemon asks of the kernel and of the heap for each frame of a real stream, as the kernel
# notes it. Runs in the test machine; leaves $SHARE/frame-FORMAT.trace, which bench/machine/count reads.
# shellcheck source=tests/vm/lib.sh
. "$(dirname "$0")/../../tests/vm/lib.sh"
. "$(dirname "$0")/../../tests/vm/host.sh"

tracing=/sys/kernel/tracing
libc=/lib/x86_64-linux-gnu/libc.so.6

# probe NAME: from now on the event heap/NAME is a call of the C library's function of that name.
probe() {
    local offset
    offset=$(nm -D "$libc" | awk -v name="$1@@" 'index($3, name) == 1 {print $1}')
    echo "p:heap/$1 $libc:0x$offset" >>$tracing/uprobe_events
}

set_up_tracing() {
    mountpoint -q $tracing || mount -t tracefs none $tracing || return 1
    echo 16384 >$tracing/buffer_size_kb
    probe malloc && probe calloc && probe realloc
}

# Every thread that the daemon has, and no other process.
# shellcheck disable=SC2154
daemon_threads() {
    local task
    for task in "/proc/${pids[daemon]}"/task/*; do echo -n "${task##*/} "; done
}

# trace ON: 1 or 0.
trace() {
    echo "$1" >$tracing/events/raw_syscalls/sys_enter/enable
    echo "$1" >$tracing/events/heap/enable
}

# note NAME: what the daemon's threads do in two seconds of a stream.
note() {
    daemon_threads >$tracing/set_event_pid
    echo >$tracing/trace
    trace 1
    sleep 2
    trace 0
    cp $tracing/trace "$SHARE/frame-$1.trace"
}

# stream NAME FOURCC SIZE
stream() {
    start_camera
    need "$1: a camera is there" wait_log 20 "$SHARE/daemon.log" 'Registering client 3' $((++cameras))
    capture "$1" "$2" "$3" 30 100 100 >/dev/null &
    need "$1: frames arrive" wait_for 60 test -s "$CAPTURES/$1.raw"
    check "$1: the kernel notes what the daemon does" note "$1"
    wait $!
    check_equal "$1: every frame arrives" 0 $?
    stop camera
}

cameras=0
start_service_manager
need "the kernel notes calls" set_up_tracing
need "the function comes up" gadget up
start_daemon
need "the daemon opens its node" wait_log 20 "$SHARE/daemon.log" 'added device: /dev/video'
stream MJPEG MJPG 1280x720
stream YUYV YUYV 640x480
finish
