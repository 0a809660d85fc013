# SPDX-License-Identifier: Apache-2.0
# Shared by the scripts that run in the test machine: named checks, waiting, processes, video nodes.
# A script sources it, makes its checks and ends with `finish`, whose status is the test's.
#   $ROOT          the project
#   $KORVANE_BUILD its build folder: programs in bin/, those of the tests in tests/
#   $SHARE         the folder that is seen from outside too: logs and captures belong here
#   $PATIENCE      how many times longer than it says a script waits for what has to come (1)
set -u
ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
: "${SHARE:=/run/host}" "${KORVANE_BUILD:=$ROOT/build}" "${PATIENCE:=1}"
passed=0 failed=0 finished=

# ---- checks -------------------------------------------------------------------------------------

ok() {
    passed=$((passed + 1))
    echo "ok    $1"
}

# fail NAME [TEXT]: a check that did not hold, and what was seen instead.
fail() {
    failed=$((failed + 1))
    echo "FAIL  $1"
    [ -z "${2:-}" ] || sed 's/^/        /' <<<"$2"
}

# check NAME COMMAND...: COMMAND succeeds; if not, what it printed is shown.
check() {
    local name=$1 seen
    shift
    if seen=$("$@" 2>&1); then ok "$name"; else fail "$name" "$* (status $?): $seen"; fi
}

# check_not NAME COMMAND...: COMMAND fails.
check_not() {
    local name=$1 seen
    shift
    if seen=$("$@" 2>&1); then fail "$name" "$* succeeded: $seen"; else ok "$name"; fi
}

# check_equal NAME EXPECTED SEEN
check_equal() {
    if [ "$2" = "$3" ]; then ok "$1"; else fail "$1" "expected: $2"$'\n'"seen:     $3"; fi
}

# check_refused NAME PATTERN COMMAND...: COMMAND fails and says why, in one line of stderr that
# matches PATTERN; nothing on stdout.
check_refused() {
    local name=$1 pattern=$2 said status=0
    shift 2
    said=$("$@" 2>&1 >/run/stdout) || status=$?
    if [ $status = 0 ]; then
        fail "$name" "$* succeeded"
    elif [ "$(wc -l <<<"$said")" != 1 ] || ! grep -qE -- "$pattern" <<<"$said"; then
        fail "$name" "expected one line like: $pattern"$'\n'"seen: $said"
    elif [ -s /run/stdout ]; then
        fail "$name" "said on stdout: $(cat /run/stdout)"
    else
        ok "$name"
    fi
}

# need NAME COMMAND...: a check without which the rest makes no sense: the script ends if it fails.
need() {
    local before=$failed
    check "$@"
    [ "$failed" = "$before" ] || finish
}

# finish: stop what runs, say how many checks held, and end the script.
finish() {
    finished=1
    stop_all
    echo "$passed ok, $failed failed"
    if [ $failed -gt 0 ] || [ $passed = 0 ]; then exit 1; else exit 0; fi
}

# A script that ends without `finish` has not made all its checks.
on_exit() {
    local status=$?
    [ -n "$finished" ] || { echo "FAIL  the script ended early (status $status)"; exit 1; }
}
trap on_exit EXIT

# ---- waiting ------------------------------------------------------------------------------------

exec {never}<> <(:)

# wait_for SECONDS COMMAND...: until COMMAND succeeds, tried twenty times a second; 1 if it never did.
wait_for() {
    local deadline=$((SECONDS + $1 * PATIENCE))
    shift
    until "$@" >/dev/null 2>&1; do
        [ $SECONDS -le $deadline ] || return 1
        read -rt 0.05 -u "$never"
    done
    return 0
}

# wait_log SECONDS FILE PATTERN [COUNT]: until COUNT lines of FILE match the extended expression.
wait_log() {
    wait_for "$1" log_has "$2" "$3" "${4:-1}" && return
    echo "no line like '$3' in $2 within $1 s; its end:"
    tail -n 15 "$2"
    return 1
}

log_has() {
    [ "$(grep -cE -- "$2" "$1")" -ge "$3" ]
}

# wait_path SECONDS PATH, wait_no_path SECONDS PATH: until a file or node is there, or gone.
wait_path() {
    wait_for "$1" test -e "$2" || { echo "$2 did not appear within $1 s"; return 1; }
}

wait_no_path() {
    wait_for "$1" test ! -e "$2" || { echo "$2 is still there after $1 s"; return 1; }
}

# ---- processes ----------------------------------------------------------------------------------

declare -A pids=()

# start NAME COMMAND...: run COMMAND beside the script; its output goes to $SHARE/NAME.log, after
# what earlier runs left there.
start() {
    local name=$1
    shift
    "$@" >>"$SHARE/$name.log" 2>&1 {never}<&- </dev/null &
    pids[$name]=$!
}

running() {
    kill -0 "${pids[$1]}" 2>/dev/null
}

# stop NAME [SIGNAL]: end what start NAME began and wait for it; `stopped` is its exit status.
stop() {
    local pid=${pids[$1]:-}
    [ -n "$pid" ] || return 0
    unset "pids[$1]"
    kill -"${2:-TERM}" "$pid" 2>/dev/null
    stopped=0
    wait "$pid" 2>/dev/null || stopped=$?
}

stop_all() {
    local name
    for name in "${!pids[@]}"; do
        stop "$name" KILL
    done
}

start_service_manager() {
    start hwservicemanager "$KORVANE_BUILD/bin/hwservicemanager"
}

start_daemon() {
    start daemon "$KORVANE_BUILD/bin/korvane.hardware.camera.desktop@2.0-service"
}

# start_camera [ARGUMENT...]
start_camera() {
    start camera "$KORVANE_BUILD/bin/desktop-camera" "$@"
}

# ---- the kernel's part --------------------------------------------------------------------------

# gadget ARGUMENT...: the UVC function, by vm/gadget.
gadget() {
    "$ROOT/vm/gadget" "$@"
}

# raise_uevent ACTION@DEVPATH [KEY=VALUE...]: to every listener, as if by the kernel.
raise_uevent() {
    "$KORVANE_BUILD/tests/raise_uevent" "$@"
}

# ---- video nodes --------------------------------------------------------------------------------

# gadget_node: the node of the UVC function, as a daemon opens it.
gadget_node() {
    local video
    for video in /sys/class/video4linux/video*; do
        [[ $(readlink "$video/device/subsystem") == */bus/gadget ]] || continue
        echo "/dev/${video##*/}"
        return
    done
    return 1
}

# host_node: the node on which the USB host captures from the webcam.
host_node() {
    local video
    for video in /sys/class/video4linux/video*; do
        [[ $(readlink "$video/device/driver") == */uvcvideo && $(<"$video/index") = 0 ]] || continue
        echo "/dev/${video##*/}"
        return
    done
    return 1
}

# wait_gadget_node, wait_host_node SECONDS: the node, as soon as there is one that opens.
wait_gadget_node() {
    wait_node "$1" gadget_node
}

wait_host_node() {
    wait_node "$1" host_node
}

wait_node() {
    wait_for "$1" node_opens "$2" || { echo "no ${2/_/\'s } within $1 s"; return 1; }
    "$2"
}

node_opens() {
    local node
    node=$("$1") && [ -c "$node" ]
}
