# shellcheck shell=bash disable=SC2034,SC2154
# SPDX-License-Identifier: Apache-2.0
# Plays the USB host in the test machine, with the tools that people use. Sourced after lib.sh.

# Memory, not the shared folder: writing there would take the processor from the stream.
CAPTURES=/run/captures
mkdir -p $CAPTURES

# PROGRESS isn't empty where a person at a terminal is to see how far a capture is.
[ -z "${PROGRESS:-}" ] || exec {terminal}>&1

# stamp NAME COUNT: each line of standard input that reports a received buffer, as monotonic microseconds
# and the driver's number.
stamp() {
    perl -MTime::HiRes=clock_gettime,CLOCK_MONOTONIC -e '
        $| = 1;
        my ($name, $count, $descriptor) = @ARGV;
        open(my $terminal, ">&=", $descriptor) if $descriptor;
        $terminal->autoflush(1) if $terminal;
        my $received = 0;
        while (<STDIN>) {
            next unless /cap dqbuf:.* seq:\s*(\d+)/;
            printf "%d %d\n", clock_gettime(CLOCK_MONOTONIC) * 1e6, $1;
            print $terminal "\r\e[K$name: $received of $count frames received"
                if ++$received % 10 == 0 && $terminal;
        }
        print $terminal "\r\e[K" if $terminal' "$1" "$2" "${terminal:-}"
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
        tee "$CAPTURES/$name.log" | stamp "$name" "$count" >"$CAPTURES/$name.times"
    [ "${PIPESTATUS[0]}" = 0 ] || { tail -n 5 "$CAPTURES/$name.log"; return 1; }
}

# start_capture FOURCC WIDTHxHEIGHT: begin a capture, by the name "capture", that receives frames and
# keeps none, until it is stopped or the stream is taken away from it.
start_capture() {
    start capture timeout 120 v4l2-ctl -d "$(wait_host_node 10)" \
        --set-fmt-video="width=${2%x*},height=${2#*x},pixelformat=$1" --stream-mmap=4 \
        --stream-count=100000 --stream-to=/dev/null
}

# freeze_capture: before the function goes in mid-stream. The host's program keeps its node open until
# thaw_capture: were it to close the node while that goes, the kernel's media core might use an entity that
# both of them take away, and panic.
freeze_capture() {
    kill -STOP -- "-${pids[capture]}"
}

thaw_capture() {
    kill -CONT -- "-${pids[capture]}"
}

# A host whose window stays open, by the name "capture". What it notes of itself:
host_log=$SHARE/capture.log

# watch FOURCC SIZE: the host opens its window, and notes every buffer it receives.
watch() {
    : >"$host_log"
    start capture timeout 120 v4l2-ctl -d "$(wait_host_node 20)" --verbose \
        --set-fmt-video="width=${2%x*},height=${2#*x},pixelformat=$1" --stream-mmap=4 \
        --stream-count=100000 --stream-to=/dev/null
}

# streams: whether the host has begun.
streams() {
    log_has "$host_log" 'VIDIOC_STREAMON returned 0' 1
}

# film NAME FOURCC SIZE: the same, and keeps what it receives, by that name.
film() {
    local name=$1
    shift
    : >"$host_log"
    start capture timeout 120 v4l2-ctl -d "$(wait_host_node 20)" --verbose \
        --set-fmt-video="width=${2%x*},height=${2#*x},pixelformat=$1" --stream-mmap=4 \
        --stream-count=100000 --stream-to="$CAPTURES/$name.raw"
}

# received: how many frames the host has received in this stream.
received() {
    grep -c 'cap dqbuf:' "$host_log"
}

# moves COUNT: until the host has received COUNT frames more.
moves() {
    wait_log 30 "$host_log" 'cap dqbuf:' $(($(received) + $1))
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

# daemon_wake_ups SECONDS: how often the daemon's threads were woken in that time.
daemon_wake_ups() {
    local before
    before=$(daemon_switches)
    read -rt "$1" -u "$never"
    echo $(($(daemon_switches) - before))
}

# daemon_switches: how often its threads have left a processor so far, of their own will or not.
daemon_switches() {
    local file line sum=0
    for file in "/proc/${pids[daemon]}"/task/*/status; do
        while read -r line; do
            [[ $line != *voluntary_ctxt_switches:* ]] || sum=$((sum + ${line##*[[:space:]]}))
        done <"$file"
    done
    echo $sum
}

# daemon_rests: nothing has woken it for three seconds.
daemon_rests() {
    [ "$(daemon_wake_ups 3)" = 0 ]
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

# vivid_node: the node on which the kernel's virtual camera gives pictures.
vivid_node() {
    local video
    for video in /sys/class/video4linux/video*; do
        [[ $(<"$video/name") == vivid-*-vid-cap ]] || continue
        echo "/dev/${video##*/}"
        return
    done
    return 1
}
