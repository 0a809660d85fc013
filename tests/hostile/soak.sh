#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# soak.sh: a long time in the test machine, for scripts/soak, whose settings come in the environment:
#   SOAK_SEED     what is done and in which order follows from it
#   SOAK_SECONDS  when it ends at the latest
#   SOAK_STREAMS, SOAK_UNBINDS, SOAK_KILLS (of each program), SOAK_LONG (seconds of one stream)
#                 only this is done, so often; without any of them, everything at random
# Ends at the first thing that is not right. The last line is the run's result, whatever it was.
# shellcheck source-path=SCRIPTDIR disable=SC2034
HOST_SHARE=${SHARE:-/run/host}
# In memory: a shared folder would be the slowest part of it all.
SHARE=/run/soak
mkdir -p $SHARE
. "$(dirname "$0")/../vm/lib.sh"
. "$(dirname "$0")/../vm/host.sh"
. "$(dirname "$0")/lib.sh"

RANDOM=$SOAK_SEED
kernel=$(uname -r | grep -oE "^[0-9]+\.[0-9]+")
idle_descriptors=0 opened_fds=0 kb=0 live=0 live_at_first=0
streams=0 unbinds=0 sleeps=0 pauses=0 swapped=0 result=ok last=nothing
declare -A kills=([daemon]=0 [camera]=0 [hwservicemanager]=0)
samples=()

# Where the daemon says how many allocations it has.
allocations=/run/allocations

# How long the log may get before it is begun again, in bytes.
log_limit=1000000

modes=('MJPG 320x240 30' 'MJPG 640x480 30' 'MJPG 640x480 15' 'MJPG 1280x720 30' 'MJPG 1920x1080 30'
    'RAW 320x240 30' 'RAW 640x480 30' 'RAW 640x480 15' 'RAW 1280x720 10' 'RAW 1280x720 5')
# What RAW is: YUYV or NV12, which share a place in the function.
raw=YUYV

# A program must not end a stream that the host has not ended: up to 6.8 the gadget's driver uses freed
# requests then, and now and then the kernel panics.
may_cut() {
    [ $((${kernel%.*} * 100 + ${kernel#*.})) -ge 609 ]
}

# ---- what is right ------------------------------------------------------------------------------

# say TEXT: prints it after the seconds that have passed.
say() {
    printf '%6d  %s\n' $SECONDS "$1"
}

# wrong TEXT: ends the run.
wrong() {
    result=wrong
    say "WRONG after $last: $1"
    conclude
}

# waits SECONDS PATTERN COUNT: until the daemon's log has so many such lines.
waits() {
    wait_log "$1" "$daemon_log" "$2" "$3" >/dev/null || wrong "the daemon did not say '$2' within $1 s"
}

lines() {
    grep -cE -- "$1" "$daemon_log"
}

# Without a process of its own, since it is called often.
private_kb() {
    local name value _ sum=0
    while read -r name value _; do
        [[ $name != Private_* ]] || sum=$((sum + value))
    done <"/proc/${pids[daemon]}/smaps_rollup"
    kb=$sum
}

open_descriptors() {
    local all=("/proc/${pids[daemon]}/fd/"*)
    opened_fds=${#all[@]}
}

descriptors_are() {
    open_descriptors
    [ "$opened_fds" = "$1" ]
}

# count_allocations: sets `live`, how many allocations of the daemon's live.
count_allocations() {
    rm -f "$allocations"
    kill -USR2 "${pids[daemon]}"
    wait_for 10 test -s "$allocations" || wrong "the daemon does not say how much it has allocated"
    read -r live _ <"$allocations"
}

# rests: the daemon lives, has the descriptors that it has when nothing goes on, and its memory is noted.
rests() {
    running daemon || wrong "the daemon has died: $(tail -n 3 "$daemon_log")"
    wait_for 10 descriptors_are "$idle_descriptors" ||
        wrong "$opened_fds descriptors are open, not $idle_descriptors"
    private_kb
    samples+=("$kb")
    begin_log_anew
}

begin_log_anew() {
    [ "$(stat -c %s "$daemon_log")" -gt $log_limit ] || return
    cp "$daemon_log" "$daemon_log.before"
    : >"$daemon_log"
}

# ---- the host -----------------------------------------------------------------------------------

# host NODE FOURCC SIZE RATE COUNT [SUMS]: one stream, all of whose frames must come.
host() {
    running soak_host || begin_host
    echo "$*" >&21
    read -rt $((SOAK_SECONDS + 600)) -u 22 said || said="WRONG: the host has ended"
    [[ $said == ok* ]] || wrong "$said"
    swapped=$((swapped + ${said##* }))
}

begin_host() {
    rm -f /run/to_host /run/from_host
    mkfifo /run/to_host /run/from_host
    exec 21<>/run/to_host 22<>/run/from_host
    "$KORVANE_BUILD/tests/soak-host" </run/to_host >/run/from_host 2>>"$SHARE/host.log" {never}<&- 21<&- 22<&- &
    pids[soak_host]=$!
}

# without_host COMMAND...: the programs that it starts don't inherit the way to the host.
without_host() {
    "$@" 21<&- 22<&-
}

# node_of_host: `node`, looked for only when the one known has gone.
node_of_host() {
    [ -n "${node:-}" ] && [ -c "$node" ] && return
    node=$(wait_host_node 30) || wrong "the host sees no camera"
}

# stream_of MODE COUNT
stream_of() {
    local fourcc size rate
    read -r fourcc size rate <<<"$1"
    [ "$fourcc" != RAW ] || fourcc=$raw
    node_of_host
    last="stream $((streams + 1)), $fourcc $size at $rate, $2 frames"
    host "$node" "$fourcc" "$size" "$rate" "$2"
    streams=$((streams + 1))
}

random_stream() {
    stream_of "${modes[RANDOM % ${#modes[@]}]}" $((RANDOM % 4 + 1))
}

# ---- what happens -------------------------------------------------------------------------------

begin_camera() {
    local before
    before=$(lines 'Registering client 3')
    without_host start_camera --log /run/camera.frames
    waits 30 'Registering client 3' $((before + 1))
}

# interrupt ACTION...: every other time in mid-stream, where the kernel survives that.
interrupt() {
    local during=idle
    if may_cut && [ $((RANDOM % 2)) = 0 ]; then
        during=streaming
        node_of_host
        drawn=$(wc -l </run/camera.frames)
        without_host start_capture MJPG 320x240
        wait_for 30 frames_flow || wrong "no frames for the stream that is to be cut"
        freeze_capture
    fi
    last="$* while $during"
    "$@"
    [ $during = idle ] || thaw_capture
    stop capture
}

frames_flow() {
    [ "$(wc -l </run/camera.frames)" -gt $((drawn + 3)) ]
}

unbind() {
    local opened
    opened=$(lines 'added device')
    timeout 10 "$ROOT/vm/gadget" unbind || wrong "unbinding took longer than 10 s"
    camera_goes
    gadget bind || wrong "it can't be bound again"
    waits 20 'added device' $((opened + 1))
    unbinds=$((unbinds + 1))
}

# camera_goes: the host's node goes, so that the next one is not taken for it.
camera_goes() {
    node=
    wait_for 20 no_host_node || wrong "the host still sees a camera"
}

no_host_node() {
    ! host_node
}

# Another raw format: the function goes and comes with another list.
other_formats() {
    last="another raw format than $raw"
    [ $raw = YUYV ] && raw=NV12 || raw=YUYV
    gadget down || wrong "the function does not go"
    camera_goes
    local opened
    opened=$(lines 'added device')
    function_up || wrong "the function does not come back"
    waits 20 'added device' $((opened + 1))
}

function_up() {
    gadget up --format ${raw,,}:320x240@30 --format ${raw,,}:640x480@30,15 \
        --format ${raw,,}:1280x720@10,5 --format mjpeg:320x240@30 --format mjpeg:640x480@30,15 \
        --format mjpeg:1280x720@30 --format mjpeg:1920x1080@30
}

kill_camera() {
    local died
    died=$(lines 'Service died for 3')
    stop camera KILL
    kills[camera]=$((kills[camera] + 1))
    waits 10 'Service died for 3' $((died + 1))
    begin_camera
}

# A stopped camera's stream fails or waits; the next one must not.
pause_camera() {
    last="a camera that is stopped for a second"
    kill -STOP "${pids[camera]}"
    read -rt 1 -u "$never"
    kill -CONT "${pids[camera]}"
    pauses=$((pauses + 1))
}

kill_daemon() {
    stop daemon KILL
    kills[daemon]=$((kills[daemon] + 1))
    daemon_again
}

# As on a board, where the service is restarted with the register.
kill_hwservicemanager() {
    stop hwservicemanager KILL
    kills[hwservicemanager]=$((kills[hwservicemanager] + 1))
    stop daemon KILL
    without_host start_service_manager
    daemon_again
}

# With the allocator that counts.
begin_daemon() {
    LD_PRELOAD=$KORVANE_BUILD/tests/live_allocations.so LIVE_ALLOCATIONS=$allocations start_daemon
}

daemon_again() {
    camera_goes
    : >"$daemon_log"
    without_host begin_daemon
    waits 20 'added device' 1
    waits 20 'Registered Camera Desktop HAL service success!' 1
    waits 30 'Registering client 3' 1
}

host_sleeps() {
    local device
    last="the host asleep"
    for device in /sys/bus/usb/devices/*/; do
        [ -e "$device/idVendor" ] && [ "$(<"$device/bDeviceClass")" != 09 ] || continue
        echo 0 >"$device/power/autosuspend_delay_ms"
        echo auto >"$device/power/control"
        wait_for 20 sleeps_now "$device" || wrong "the port does not sleep"
        sleeps=$((sleeps + 1))
        return
    done
    wrong "the host has no webcam"
}

sleeps_now() {
    [ "$(<"$1/power/runtime_status")" = suspended ]
}

random_step() {
    local dice=$((RANDOM % 100))
    case $dice in
        [0-9]) interrupt unbind ;;
        1[0-3]) interrupt kill_camera ;;
        1[4-5]) interrupt kill_daemon ;;
        16) interrupt kill_hwservicemanager ;;
        1[7-8]) pause_camera ;;
        19 | 2[0-1]) host_sleeps ;;
        22) other_formats ;;
    esac
    random_stream
}

# ---- the run ------------------------------------------------------------------------------------

# half BEGIN COUNT: median and highest of those samples, in kB.
half() {
    printf '%s\n' "${samples[@]:$1:$2}" | sort -n |
        awk '{all[NR] = $1} END {print all[int((NR + 1) / 2)] " " all[NR]}'
}

conclude() {
    local n=${#samples[@]} first='0 0' second='0 0'
    # The first few fill what is kept for later.
    if [ "$n" -ge 30 ]; then
        samples=("${samples[@]:10}")
        n=$((n - 10))
        first=$(half 0 $((n / 2)))
        second=$(half $((n / 2)) $((n - n / 2)))
        say "memory in kB, median and highest: first half $first, second half $second"
        if [ $result = ok ] && is_higher; then
            result=wrong
            say "WRONG: the second half's memory is higher"
        fi
    fi
    [ $result = ok ] || cp "$SHARE"/*.log "$SHARE"/*.before "$HOST_SHARE" 2>/dev/null
    echo "kernel=$kernel seed=$SOAK_SEED seconds=$SECONDS streams=$streams unbinds=$unbinds" \
        "kills_daemon=${kills[daemon]} kills_camera=${kills[camera]}" \
        "kills_register=${kills[hwservicemanager]} sleeps=$sleeps pauses=$pauses" \
        "descriptors=$idle_descriptors memory_first=${first// //} memory_second=${second// //}" \
        "long=${long_frames:-0} swapped=$swapped result=$result" | tee "$HOST_SHARE/result"
    finished=1
    stop_all
    [ $result = ok ]
    exit
}

# Of one daemon its usual memory is judged; of several, which have not all had the largest streams, the most.
is_higher() {
    if is_same_daemon; then
        [ $((${second% *} - ${first% *})) -gt $allowed ]
    else
        [ $((${second#* } - ${first#* })) -gt $allowed_of_several ]
    fi
}

time_is_up() {
    [ $SECONDS -ge "$SOAK_SECONDS" ]
}

# repeat COUNT COMMAND...: so often, or until the time is up.
repeat() {
    local done_ count=$1
    shift
    for ((done_ = 1; done_ <= count; done_++)); do
        if time_is_up; then
            say "time is up after $((done_ - 1)) of $count: $*"
            return
        fi
        "$@"
        rests
        [ $((done_ % 50)) != 0 ] || report
    done
}

report() {
    count_allocations
    say "$streams streams, $unbinds unbound, killed: daemon ${kills[daemon]}, camera ${kills[camera]}, \
register ${kills[hwservicemanager]}; $sleeps asleep; memory $kb kB in $live allocations, $opened_fds descriptors"
    is_same_daemon || return 0
    [ "$live_at_first" != 0 ] || live_at_first=$live
    [ "$live" = "$live_at_first" ] || wrong "$live allocations live, $live_at_first after the first report"
}

# A new one has other allocations until it has seen as much.
is_same_daemon() {
    [ $((kills[daemon] + kills[hwservicemanager])) = 0 ]
}

unbind_and_stream() {
    interrupt unbind
    stream_of 'MJPG 320x240 30' 2
}

# kill_and_stream PROGRAM
kill_and_stream() {
    interrupt "kill_$1"
    stream_of 'MJPG 320x240 30' 2
}

kill_each() {
    kill_and_stream daemon
    kill_and_stream camera
    kill_and_stream hwservicemanager
}

# long_stream SECONDS: each frame that the camera drew from the first to the last must be there.
long_stream() {
    local frames=$(($1 * 30)) before first
    last="one stream of $frames frames"
    before=$(wc -l </run/camera.frames)
    node_of_host
    host "$node" MJPG 640x480 30 $frames /run/sums
    tail -n +$((before + 1)) /run/camera.frames |
        sed -n 's/.* bytes=\([0-9]*\) crc32=\(.*\)/\1 \2/p' >/run/drawn
    # The host may begin after the first one; from there on nothing may be missing.
    first=$(grep -nxF -m 1 "$(head -n 1 /run/sums)" /run/drawn | cut -d : -f 1)
    [ -n "$first" ] || wrong "the first frame was never drawn"
    tail -n +"$first" /run/drawn | head -n $frames | cmp - /run/sums ||
        wrong "what the host received is not what the camera drew"
    long_frames=$frames
    say "one stream of $frames frames, $(($1)) s at 30 a second: each came, unchanged"
    streams=$((streams + 1))
}

# How much higher, in kB, the second half's memory may be: as much as one sample may differ from the next.
allowed=64
allowed_of_several=2048
start_service_manager
need "the function comes up" function_up
begin_daemon
need "the daemon opens its node" wait_log 20 "$daemon_log" 'added device: /dev/video'
need "the daemon registers" wait_log 20 "$daemon_log" 'Registered Camera Desktop HAL service success!'
begin_camera
begin_host
random_stream
wait_for 5 false
open_descriptors
idle_descriptors=$opened_fds
say "seed $SOAK_SEED on $kernel; $idle_descriptors descriptors"

if [ -z "${SOAK_STREAMS:-}${SOAK_UNBINDS:-}${SOAK_KILLS:-}${SOAK_LONG:-}" ]; then
    repeat 1000000000 random_step
else
    [ -z "${SOAK_LONG:-}" ] || long_stream "$SOAK_LONG"
    [ -z "${SOAK_STREAMS:-}" ] || repeat "$SOAK_STREAMS" random_stream
    [ -z "${SOAK_UNBINDS:-}" ] || repeat "$SOAK_UNBINDS" unbind_and_stream
    [ -z "${SOAK_KILLS:-}" ] || repeat "$SOAK_KILLS" kill_each
fi
report
conclude
