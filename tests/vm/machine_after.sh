#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# The machine as seen by those who start it; runs natively, after machine_test.sh.
. "$(dirname "$0")/lib.sh"
run=$ROOT/vm/run

check_equal "shares a folder with the host" guest "$(cat "$SHARE/written")"
check "leaves the host's files alone" test ! -e /etc/korvane-test
check "keeps the kernel's console" test -e "$SHARE/console.log"

read -r since until <"$SHARE/clock"
on_host="$(stat -c %.Y "$SHARE/clock-start" "$SHARE/clock-end" | tr '\n' ' ')"
check "has a clock as fast as the host's" awk -v since="$since" -v until="$until" -v host="$on_host" \
    'BEGIN { split(host, at); ratio = (until - since) / (at[2] - at[1]); print ratio;
             exit !(until - since > 4.9 && ratio > 0.9 && ratio < 1.1) }'

# run_machine VARIABLE=VALUE... COMMAND...: output and status of one run.
run_machine() {
    status=0
    said=$(env -u SHARE "$@" 2>&1 </dev/null) || status=$?
}

run_machine TIMEOUT=60 "$run" sh -c 'echo "a  b" "$1"; exit 7' sh "it's; here"
check_equal "passes the command's status on" 7 "$status"
check_equal "passes arguments and output on as they are" "a  b it's; here" "$said"

run_machine TIMEOUT=60 "$run" sh -c 'echo c >/proc/sysrq-trigger; sleep 60'
check_equal "tells a dead kernel from a failed command" 125 "$status"
check "shows the dead kernel's last words" grep -q 'Kernel panic' <<<"$said"

# An emulator that ends at once the first time: what a kernel that dies while it comes up looks like.
mkdir "$SHARE/dying"
cat >"$SHARE/dying/qemu" <<'EOF'
#!/bin/sh
died=${0%/*}/died
[ -e "$died" ] && PATH=${PATH#*:} exec "${0##*/}" "$@"
: >"$died"
EOF
chmod +x "$SHARE/dying/qemu"
ln -s qemu "$SHARE/dying/qemu-system-x86_64"
ln -s qemu "$SHARE/dying/qemu-system-aarch64"
run_machine TIMEOUT=60 PATH="$SHARE/dying:$PATH" "$run" sh -c 'exit 3'
check_equal "starts a kernel again that has not come up" 3 "$status"
check "and says so" grep -q 'is started again' <<<"$said"

run_machine TIMEOUT=15 "$run" sleep 100
check_equal "ends a hung command in time" 124 "$status"
check "says that the time was up" grep -q 'after 15 seconds (TIMEOUT)' <<<"$said"

# An otherwise empty loop's processor time, twice, in microseconds; each of them 500 instructions.
run_machine TIMEOUT=120 CLOCK=instructions "$run" bash -c 'nproc
    for run in 1 2; do perl -e "1 for 1 .. 3000000; print int(1e6 * (times)[0]), qq(\n)"; done'
read -r -d '' processors first second <<<"$said"
check_equal "has one processor where instructions are the clock" 1 "$processors"
check "takes the same time for the same work there" awk -v a="$first" -v b="$second" \
    'BEGIN {exit !(a > 10000 && a < 1.05 * b && b < 1.05 * a)}'

folder=$SHARE
unset SHARE
refused() {
    check_refused "$1" "$2" env "${@:3}"
}
refused "refuses an unknown kernel" "KERNEL is '5.4', but 6.1 or 6.12 is needed" \
    KERNEL=5.4 "$run" true
refused "refuses an unknown processor" "ARCH is 'mips', but amd64 or arm64 is needed" \
    ARCH=mips "$run" true
refused "refuses a timeout that is not a number" "TIMEOUT is 'soon', but a number of seconds" \
    TIMEOUT=soon "$run" true
refused "refuses too little memory" "MEMORY is '64', but a number of MB from 256" \
    MEMORY=64 "$run" true
refused "refuses an unknown clock" "CLOCK is 'sun', but real or instructions is needed" \
    CLOCK=sun "$run" true
refused "refuses a shared folder it cannot make" "cannot use /proc/x as SHARE" \
    SHARE=/proc/x "$run" true
refused "refuses a cache it cannot write" "cannot write to /proc/x" \
    KORVANE_VM_CACHE=/proc/x "$run" true

mkdir "$folder/bin" && ln -s /usr/sbin/* /usr/bin/* "$folder/bin/" 2>/dev/null
rm "$folder/bin/qemu-system-"*
refused "says that qemu is missing" "qemu-system-(x86_64|aarch64) is not to be found on PATH" \
    PATH="$folder/bin" "$run" true
finish
