# shellcheck shell=bash disable=SC2034,SC2154
# SPDX-License-Identifier: Apache-2.0
# Plays the USB host in the test machine, with the tools that people use. Sourced after lib.sh.

# Memory, not the shared folder: writing there would take the processor from the stream.
CAPTURES=/run/captures
mkdir -p $CAPTURES

# stamp: each line of standard input that reports a received buffer, as monotonic microseconds.
stamp() {
    perl -MTime::HiRes=clock_gettime,CLOCK_MONOTONIC -ne '
        BEGIN { $| = 1 }
        printf "%d\n", clock_gettime(CLOCK_MONOTONIC) * 1e6 if /cap dqbuf:/'
}

# capture NAME FOURCC WIDTHxHEIGHT RATE COUNT [SECONDS]: negotiate and receive COUNT frames into
# $CAPTURES/NAME.raw, their times into $CAPTURES/NAME.times. Fails when they have not come within
# SECONDS (default 60).
capture() {
    local name=$1 fourcc=$2 size=$3 rate=$4 count=$5 limit=${6:-60} node
    node=$(wait_host_node 10) || return 1
    timeout "$limit" v4l2-ctl -d "$node" --verbose \
        --set-fmt-video="width=${size%x*},height=${size#*x},pixelformat=$fourcc" \
        --set-parm="$rate" --stream-mmap=16 --stream-count="$count" \
        --stream-to="$CAPTURES/$name.raw" 2>&1 >"$CAPTURES/$name.said" |
        tee "$CAPTURES/$name.log" | stamp >"$CAPTURES/$name.times"
    [ "${PIPESTATUS[0]}" = 0 ] || { tail -n 5 "$CAPTURES/$name.log"; return 1; }
}

# keep_capture NAME: move what was captured to the shared folder, where it is checked natively.
keep_capture() {
    mv "$CAPTURES/$1".* "$SHARE/"
}

# daemon_cpu: the daemon's processor time so far, in microseconds.
daemon_cpu() {
    local fields
    read -r -a fields <"/proc/${pids[daemon]}/stat"
    echo $(((fields[13] + fields[14]) * 1000000 / $(getconf CLK_TCK)))
}

# daemon_private: the daemon's private memory in kB.
daemon_private() {
    awk '/^Private_/ {sum += $2} END {print sum}' "/proc/${pids[daemon]}/smaps_rollup"
}

# daemon_descriptors: how many the daemon has open.
daemon_descriptors() {
    find "/proc/${pids[daemon]}/fd" -mindepth 1 | wc -l
}

# trace_sent: from now on the kernel notes each frame that the daemon hands to the gadget.
trace_sent() {
    mountpoint -q /sys/kernel/tracing || mount -t tracefs none /sys/kernel/tracing || return 1
    local qbuf=/sys/kernel/tracing/events/v4l2/v4l2_qbuf
    echo 0 >$qbuf/enable
    echo >/sys/kernel/tracing/trace
    echo 'type == 2' >$qbuf/filter  # output: the host's own buffers are of another
    echo 1 >$qbuf/enable
}

# sent: how many frames that were.
sent() {
    grep -c v4l2_qbuf: /sys/kernel/tracing/trace
}
