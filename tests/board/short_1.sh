# SPDX-License-Identifier: Apache-2.0
# A fresh board: one installation makes it a webcam, which comes back after the cable was pulled.
. /run/host/lib.sh
. /run/host/board.sh

check_not "nothing of ours is there" sh -c "dpkg-query -W | grep korvane"
check_not "there is no binder device" test -e /dev/hwbinder
need "the packages install" install_packages /run/host/packages
start=$(now_ms)
need "the host sees a webcam" enumerated_within 30
took "from the installation to a webcam" "$start"
need "with a moving picture" picture
within "from the installation to ten frames" "$start" "$(now_ms)" 10000
check_equal "no unit has failed" "" "$(systemctl --failed --plain --no-legend)"
check_equal "by its name" "Korvane Webcam" "$(cut -d: -f1 <"/sys/class/video4linux/$(basename "$(host_node)")/name")"

# Older kernels fix what the function offers; the service serves no control.
if [ "$(stat -c %a $g1/functions/uvc.0/control/processing/default/bmControls)" != 444 ]; then
    check_equal "with no controls that would only fail" "" \
        "$(v4l2-ctl -d "$(host_node)" --list-ctrls 2>&1)"
fi

hear_keeper
before=$(switches korvane-keeper)
read -rt 5 -u "$never"
check_equal "the keeper sleeps while all is well" "$before" "$(switches korvane-keeper)"

start=$(now_ms)
echo 1 >$port/disable
check "the cable is pulled" wait_for 20 not_enumerated
served_in_time "cable pulled" "$start"
echo 0 >$port/disable
back "cable" "$(now_ms)"

for user in root:korvane-gadget korvane-webcam:hwservicemanager korvane-webcam:desktop@2.0-service \
    korvane-camera:desktop-camera; do
    check_equal "${user#*:} runs as ${user%:*}" "${user%:*}" \
        "$(pgrep -f "bin/.*${user#*:}|libexec/.*${user#*:}" | xargs -n 1 ps -o user:20= -p | tr -d ' ' | sort -u)"
done
check_equal "nothing listens on a network" "" "$(cat /proc/net/{tcp,udp,raw}{,6} | grep -v local_address)"
finish
