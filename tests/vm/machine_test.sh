# SPDX-License-Identifier: Apache-2.0
# What every other test in the machine relies on.
. "$(dirname "$0")/lib.sh"

check "runs as root" test "$(id -u)" = 0
check "has /dev/hwbinder" test -c /dev/hwbinder
check "has a device controller" test -e /sys/class/udc/dummy_udc.0
check "has configfs on /config" mountpoint -q /config
check_equal "mounts configfs once" 1 "$(grep -c ' configfs ' /proc/mounts)"
check "sees the project" test -x "$ROOT/vm/run"
check "keeps writes to the file system to itself" touch /etc/korvane-test
check "can write to the shared folder" sh -c "echo guest >'$SHARE/written'"

for module in usb_f_uvc uvcvideo vivid; do
    check "loads $module" modprobe $module
done
check "has a camera" sh -c "grep -l '^vivid.*vid-cap' /sys/class/video4linux/*/name"
check "keeps temporary files" sh -c 'f=$(mktemp) && echo x >$f && rm $f'

# An isochronous endpoint is what the stock controller lacks.
check "has a controller with an isochronous endpoint" grep -q ep3in-iso "$(modinfo -n dummy_hcd)"

# Its clock is told how fast it runs, see vm/tsc_khz.c; the host compares when the files were written.
read -r since _ </proc/uptime && touch "$SHARE/clock-start"
read -rt 5 -u "$never"
read -r until _ </proc/uptime && touch "$SHARE/clock-end"
echo "$since $until" >"$SHARE/clock"
declare -A counters=([x86_64]=tsc [aarch64]=arch_sys_counter)
check_equal "takes the time from the processor" "${counters[$(uname -m)]}" \
    "$(cat /sys/devices/system/clocksource/clocksource0/current_clocksource)"

# A uevent that root hands to the kernel comes to every listener of the network namespace; one of its
# own keeps the machine's real ones out.
start listener unshare -n busybox uevent env
listener=${pids[listener]}
check "has a listener for uevents" wait_for 10 grep -q "^[0-9a-f]* 15 .* 00000001 " \
    /proc/$listener/net/netlink
check "takes a uevent from root" nsenter -t $listener -n "$KORVANE_BUILD/tests/raise_uevent" \
    change@/devices/korvane SUBSYSTEM=android_usb USB_STATE=DISCONNECTED
check "delivers it to the listener" wait_log 10 "$SHARE/listener.log" '^USB_STATE=DISCONNECTED$'
stop listener
finish
