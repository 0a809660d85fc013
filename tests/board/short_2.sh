# SPDX-License-Identifier: Apache-2.0
# The second boot of a board: a webcam without being told; then the packages go, and leave nothing.
. /run/host/lib.sh
. /run/host/board.sh

need "it is a webcam after a boot" enumerated_within 60
took "from the kernel's start to a webcam" 0
check "with a moving picture" picture

check "the packages go, but for their settings" apt-get remove -y -q 'korvane*'
check "which stay" test -e /etc/korvane/camera.conf
check_not "the host has no webcam" host_node
check_equal "no process is left" "" "$(pgrep -fa 'korvane|hwservicemanager|desktop-camera')"
need "the settings go" apt-get purge -y -q 'korvane*'
check_not "no packages are left" sh -c "dpkg-query -W | grep korvane"
check_equal "no files are left" "" "$(find / -xdev -not -path '/run/*' -iname '*korvane*' -not -path '/proc/*' |
    grep -v '^/var/log/')"
check_equal "no folder of settings is left" "" "$(ls -d /etc/korvane /config 2>/dev/null)"
check_equal "no user is left" "" "$(getent passwd | grep korvane; getent group hwbinder)"
check_equal "no unit is left" "" "$(systemctl list-units --all --plain --no-legend 'korvane*' config.mount)"
check_equal "no module option is left" "" "$(modprobe -c | grep '^options binder_linux')"
check_not "no gadget is left" sh -c "ls /sys/class/udc/*/device/gadget*/video4linux"
finish
