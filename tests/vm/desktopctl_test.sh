#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# desktopctl with real processes: what a new user sees from a machine with nothing running to a
# picture, the status of each state, the frames that it takes out of a stream. Runs in the test
# machine; desktopctl_after.sh then decodes and compares natively.
# shellcheck disable=SC2154 # lib.sh's
. "$(dirname "$0")/lib.sh"
. "$(dirname "$0")/host.sh"

ctl=$KORVANE_BUILD/bin/desktopctl

# exits STATUS COMMAND...
exits() {
    local wanted=$1 status=0
    shift
    "$@" >"$SHARE/said" 2>"$SHARE/complained" || status=$?
    [ "$status" = "$wanted" ] && return
    echo "$* ended with $status, not $wanted:"
    cat "$SHARE/said" "$SHARE/complained"
    return 1
}

# finds STATE WHAT SAYS: the doctor has that line.
finds() {
    "$ctl" doctor >"$SHARE/doctor" 2>/dev/null
    grep -qE "^$1 +$2 +$3" "$SHARE/doctor" && return
    echo "no line '$1 $2 $3':"
    cat "$SHARE/doctor"
    return 1
}

says() {
    "$ctl" status 2>/dev/null | grep -qE -- "$1" && return
    echo "no line '$1':"
    "$ctl" status
    return 1
}

member() {
    "$ctl" status --json 2>/dev/null | python3 -c "import json, sys; print(json.load(sys.stdin)$1)"
}

# ---- from nothing to ready ----------------------------------------------------------------------

check "without a service it is not running" exits 3 "$ctl" status
mv /dev/hwbinder /dev/hwbinder.away
check "the doctor misses binder" finds wrong binder 'there is no /dev/hwbinder'
check "and the status ends as for a service that isn't there" exits 3 "$ctl" status
mv /dev/hwbinder.away /dev/hwbinder
check "the doctor misses the function" finds wrong function 'there is no /config/usb_gadget/g1'
check "and the service manager" finds wrong register 'no service manager answers'
case $(uname -r) in
5.* | 6.[0-9].* | 6.1[01].*) interfaces='wrong interfaces they' ;;
*) interfaces='right interfaces the kernel' ;;
esac
need "a camera behind a serial port" gadget up --acm
# shellcheck disable=SC2086 # three words
check "the doctor looks at the interfaces" finds $interfaces
need "it goes again" gadget down
start_service_manager
check "then the service" wait_for 10 finds wrong service 'it does not run'
start_daemon
check "a service without a node" wait_for 20 exits 4 "$ctl" status
need "the function comes up, unbound" gadget up --no-bind
check "the doctor wants it bound" finds wrong bound 'the function is bound to no controller'
need "it is bound" gadget bind
check "a node without a camera" wait_for 20 exits 5 "$ctl" status
check_not "and nobody says what it does" says '^Camera:'
check "the doctor misses the camera" finds wrong camera 'none is connected'
start_camera --log "$SHARE/camera.frames"
check "a camera that waits for the host" wait_for 20 exits 0 "$ctl" status
check "it is a client" grep -qE '^3 stream +[0-9]+ \(desktop-camera\)' <("$ctl" clients)
check "nothing streams, so there is no picture" exits 1 "$ctl" snapshot "$SHARE/none.png"
check "nor a dump" exits 1 "$ctl" dump "$SHARE/none" --seconds 1
check "the doctor waits for the host" wait_for 20 finds note stream 'the host has not opened'
check "and finds nothing wrong" exits 0 "$ctl" doctor

# ---- a stream -----------------------------------------------------------------------------------

# host_streams FOURCC FILE: the host captures 640x480 into FILE until `stop capture`.
host_streams() {
    start capture timeout 200 v4l2-ctl -d "$(wait_host_node 10)" \
        --set-fmt-video="width=640,height=480,pixelformat=$1" --stream-mmap=16 \
        --stream-count=100000 --stream-to="$2"
}

host_streams MJPG $CAPTURES/mjpeg.raw
need "the host streams" wait_for 30 says 'Node: .*streaming'
check "the surface is the camera's" wait_for 10 says "Surface: .*MJPG.*taken by process ${pids[camera]}"
check "the camera says how it got its picture" wait_for 10 says '^Camera: +the test card is drawn$'
check "programs are told, too" test "$(member "['camera']['format']")" = MJPG
kill -STOP "${pids[camera]}"
check "a camera that doesn't answer holds up no status" says '^Camera: +the test card is drawn$'
kill -CONT "${pids[camera]}"
check "the doctor sees frames" wait_for 20 finds right stream '[0-9.]+ frames a second'
check "a JPEG of a frame" exits 0 "$ctl" snapshot "$SHARE/mjpeg.jpg"
check "a PNG of a frame" exits 0 "$ctl" snapshot "$SHARE/mjpeg.png"
check "every frame of two seconds" exits 0 "$ctl" dump $CAPTURES/mjpeg.dump --seconds 2
check "watch shows it on one screen" test "$("$ctl" watch --count 1 2>/dev/null | wc -l)" -le 24
check "suspend answers" grep -qx OK_WEBCAM_HAL <("$ctl" suspend)
check "the picture is held" wait_for 10 finds wrong stream 'the picture is held'
check "resume answers" grep -qx OK_WEBCAM_HAL <("$ctl" resume)
check "it moves again" wait_for 10 finds right stream '[0-9.]+ frames a second'
check "a text to a client reaches it" exits 0 "$ctl" send 4 '{}'
check "the host was there all the time" running capture
# Not after the stream: a frame that comes when the host has just ended it is refused, ENODEV.
check "nothing failed" test "$(member "['start']['calls-failed']")" = 0
stop capture
keep_capture mjpeg
check "after the stream it is ready" wait_for 20 says 'Node: .*ready'
check "and the camera draws nothing" wait_for 10 says '^Camera: +draws nothing$'
check "what was counted stays" test "$(member "['stream']['sent']")" -ge 30

# ---- asked a thousand times a second ------------------------------------------------------------

# rate SECONDS: how many frames a second came back from the host in that time, in tenths.
rate() {
    "$ctl" status --json >/run/before 2>/dev/null
    read -rt "$1" -u "$never"
    "$ctl" status --json >/run/after 2>/dev/null
    python3 -c 'import json
a, b = (json.load(open(f"/run/{name}")) for name in ("before", "after"))
print(round(10 * (b["start"]["returned"] - a["start"]["returned"]) / (b["seconds"] - a["seconds"])))'
}

host_streams YUYV /dev/null
need "the host streams again" wait_for 30 says 'Node: .*streaming'
check "a PNG of a raw frame" exits 0 "$ctl" snapshot "$SHARE/yuyv.png"
# What else the machine does disturbs either half; a question that slows the stream slows it always.
nearly_as_fast=no
for _ in 1 2 3 4 5; do
    quiet=$(rate 4)
    start asker "$KORVANE_BUILD/tests/ask_status" 1000
    watched=$(rate 4)
    stop asker
    echo "frames in ten seconds: $quiet unwatched, $watched watched; asked $(tail -n 1 "$SHARE/asker.log")"
    if [ "$watched" -ge $((quiet * 8 / 10)) ]; then
        nearly_as_fast=yes
        break
    fi
done
check_equal "the stream is nearly as fast, in the best of five" yes "$nearly_as_fast"
stop capture
stop camera KILL
check "a camera that has died says nothing" wait_for 10 exits 5 "$ctl" status
check_not "whatever it left behind" says '^Camera:'
finish
