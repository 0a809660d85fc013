# SPDX-License-Identifier: Apache-2.0
# The second boot: settings that change, and wrong ones; a node that can't be opened for a while.
. /run/host/lib.sh
. /run/host/board.sh
conf=/etc/korvane/gadget.conf

need "it is a webcam after a boot" enumerated_within 90
took "from the kernel's start to a webcam" 0
hear_keeper

# ---- settings -----------------------------------------------------------------------------------

check_equal "check finds nothing to say" "" "$(korvane-gadget check 2>&1)"
cp $conf /run/gadget.conf
echo 'format = yuyv:320x240@15' >>$conf
echo 'name = Desk' >>$conf
start=$(now_ms)
check "changed settings are taken" systemctl reload korvane-gadget
check "the host sees the new size" wait_for 30 picture 320x240
took "reload: a picture of the new size" "$start"

status_says() {
    systemctl status --no-pager --full korvane-gadget | grep -F -- "$1" || {
        systemctl status --no-pager --full korvane-gadget
        return 1
    }
}

# refused LINE REASON: one line says what is accepted, where a person would look.
refused() {
    cp /run/gadget.conf $conf
    echo "$1" >>$conf
    check_not "a reload with '$1' fails" systemctl reload korvane-gadget
    check "its reason is in the unit's status" status_says "gadget.conf:$(wc -l <$conf): $2"
    check_refused "check says it too" "$(sed 's/[]()*.[]/\\&/g' <<<"$2")" korvane-gadget check
}

# A wrong value of each key. Whatever is asked for, the function is never replaced by half of one.
made=$(grep -ars . $g1 | sort)
camera=$(lsusb -d 1d6b:0102)
refused 'format = h264:640x480@30' "unknown format 'h264' (known: yuyv nv12 mjpeg)"
refused 'maxpacket = 1500' "maxpacket is '1500', but 1 to 1024, 2048 or 3072 is needed"
for key in manufacturer product name serial controller; do
    refused "$key =" "$key is '', but 1 to 126 ASCII characters are needed"
done
refused 'colour = red' "unknown key 'colour'"
check_equal "the gadget is as it was" "$made" "$(grep -ars . $g1 | sort)"
check_equal "and the host's camera" "$camera" "$(lsusb -d 1d6b:0102)"
check "the webcam goes on as it was" picture 320x240
check_not "a start with it fails" systemctl restart korvane-gadget
check_equal "and leaves nothing in configfs" "" "$(ls /config/usb_gadget)"
cp /run/gadget.conf $conf
start=$(now_ms)
check "with right ones it starts" systemctl start korvane-webcam.target
back "right settings" "$start"

check_refused "check knows a size that the bus can't carry" "yuyv:1280x720@30 needs 55.3 MB/s" \
    korvane-gadget check --format yuyv:1280x720@30
systemctl stop korvane-webcam.target
check "a stopped webcam leaves nothing in configfs" wait_no_path 30 $g1
wait_for 10 sh -c '! mountpoint -q /config'
mount -t configfs none /config
mkdir -p /config/usb_gadget/other/configs/c.1 /config/usb_gadget/other/functions/acm.0
ln -s /config/usb_gadget/other/functions/acm.0 /config/usb_gadget/other/configs/c.1/
echo dummy_udc.0 >/config/usb_gadget/other/UDC
check_refused "check knows a controller that is taken" "dummy_udc.0 is taken by the gadget 'other'" \
    korvane-gadget check
echo >/config/usb_gadget/other/UDC
rm /config/usb_gadget/other/configs/c.1/acm.0
rmdir /config/usb_gadget/other/configs/c.1 /config/usb_gadget/other/functions/acm.0 /config/usb_gadget/other
check_refused "check knows a controller that isn't there" "no device controller 'x'" \
    env UDC=x korvane-gadget check

# give_controllers COUNT: instead of the real ones; nobody uses them.
give_controllers() {
    modprobe -r dummy_hcd && modprobe dummy_hcd is_high_speed=1 "num=$1" && udevadm settle
}
is_bound_to() {
    korvane-gadget status | grep -q "^bound to $1,"
}
check "there are two controllers now" give_controllers 2
check_refused "check wants one to be chosen" "several device controllers, .* dummy_udc.0 dummy_udc.1" \
    korvane-gadget check
echo 'controller = dummy_udc.1' >>$conf
start=$(now_ms)
systemctl start korvane-webcam.target
back "a controller that is chosen" "$start"
check "it is that one" is_bound_to dummy_udc.1
systemctl stop korvane-keeper
check "for whoever unplugs it and plugs it in, too" sh -c 'korvane-gadget unbind && korvane-gadget bind'
check "is it that one" is_bound_to dummy_udc.1
systemctl start korvane-keeper
sed -i 's/^controller = .*/controller = dummy_udc.0/' $conf
start=$(now_ms)
check "the choice is changed" systemctl reload korvane-gadget
check "the keeper takes the other one" wait_for 30 is_bound_to dummy_udc.0
back "another controller" "$start"
systemctl stop korvane-webcam.target
cp /run/gadget.conf $conf
check "there is one controller again" give_controllers 1

start=$(now_ms)
systemctl start korvane-webcam.target
back "stopped and started" "$start"

# wrong LINE WANTED: the camera says in one line what is accepted.
wrong() {
    echo "$1" >/run/camera.conf
    check_refused "the camera refuses '$1'" "^desktop-camera: /run/camera.conf:1: $2" \
        desktop-camera --config /run/camera.conf
}
wrong 'source =' "source is '', but a GStreamer pipeline, auto or card is needed"
wrong 'rotate = 45' "rotate is '45', but 0, 90, 180 or 270 is needed"
wrong 'mirror = maybe' "mirror is 'maybe', but yes or no is needed"
wrong 'privacy =' "privacy is '', but the path of a file is needed"
wrong 'on-start =' "on-start is '', but a command of the shell is needed"
wrong 'on-stop =' "on-stop is '', but a command of the shell is needed"
wrong 'colour = red' "unknown key 'colour' .known: mirror, on-start, on-stop, privacy, rotate, source."

echo 'source = nosuchsrc' >/etc/korvane/camera.conf
systemctl restart korvane-camera
check "a wrong camera ends in a clear state" wait_for 60 systemctl is-failed korvane-camera
check "with its reason" sh -c 'systemctl status --full korvane-camera | grep nosuchsrc'
check_equal "and was tried once" 0 "$(systemctl show -P NRestarts korvane-camera)"
echo 'source = card' >/etc/korvane/camera.conf
systemctl reset-failed korvane-camera
systemctl start korvane-camera
check "the right one shows pictures" picture_within 30

# ---- a lamp, lit while somebody watches -------------------------------------------------------------

# guide PATTERN: the lines of the guide that match, with the lamp that this board has instead of the guide's.
guide() {
    grep -E -- "$1" /run/host/linux-board.md | sed -E "s,ReadWritePaths=.*,ReadWritePaths=$folder,
        s,(leds/|KERNEL==\")camera\>,\1$(basename "$folder"),"
}

modprobe uinput
start lamp /run/host/lamp
need "there is a lamp" wait_for 20 sh -c 'ls -d /sys/class/leds/*::misc'
folder=$(readlink -f /sys/class/leds/*::misc)
mkdir -p /etc/systemd/system/korvane-camera.service.d
guide '^SUBSYSTEM=="leds"' >/etc/udev/rules.d/90-camera-lamp.rules
guide '^(\[Service\]|ReadWritePaths=)' >/etc/systemd/system/korvane-camera.service.d/lamp.conf
{ echo 'source = card' && guide '^on-(start|stop) = '; } >/etc/korvane/camera.conf
check_equal "the guide has what a lamp needs" "1 2 3" \
    "$(wc -l </etc/udev/rules.d/90-camera-lamp.rules) $(wc -l \
        </etc/systemd/system/korvane-camera.service.d/lamp.conf) $(wc -l </etc/korvane/camera.conf)"
guide '^(udevadm control --reload|systemctl daemon-reload) &&' | sed 's/$/ || exit/' >/run/follow
check_equal "and says in two lines how it counts at once" 2 "$(wc -l </run/follow)"
check "which work" sh /run/follow
lamp_is() {
    [ "$(cat "$folder/brightness")" = "$1" ]
}
check "it is dark while nobody watches" lamp_is 0
start watcher v4l2-ctl -d "$(host_node)" --stream-mmap=4 --stream-count=100000 --stream-to=/dev/null
check "is lit while somebody does" wait_for 30 lamp_is 1
stop watcher
check "and dark again after that" wait_for 30 lamp_is 0
stop lamp
rm -r /etc/udev/rules.d/90-camera-lamp.rules /etc/systemd/system/korvane-camera.service.d
echo 'source = card' >/etc/korvane/camera.conf
udevadm control --reload
systemctl daemon-reload
systemctl restart korvane-camera

# ---- a camera of one's own ------------------------------------------------------------------------

systemctl stop korvane-camera
check_not "without a camera there is no picture" timeout 5 v4l2-ctl -d "$(host_node)" \
    --stream-mmap=4 --stream-count=1 --stream-to=/dev/null
start example setpriv --reuid korvane-camera --init-groups /run/host/example-camera
# A stream that begins before its camera is there gets no picture.
wait_for 30 sh -c 'desktopctl clients | grep "(example-camera)"'
check "the example camera shows pictures" picture_within 30
check "of the size that the host chose" grep -q 'a stream of 640x480' "$SHARE/example.log"
stop example
systemctl start korvane-camera
check "then ours does again" picture_within 30

# ---- a node that can't be opened ------------------------------------------------------------------

mkdir -p /run/udev/rules.d
echo 'SUBSYSTEM=="video4linux", KERNELS=="gadget*", OWNER="root", GROUP="root", MODE="0600"' \
    >/run/udev/rules.d/99-shut.rules
udevadm control --reload
korvane-gadget unbind
check_not "a node that the service may not open is no webcam" wait_for 5 enumerated
rm /run/udev/rules.d/99-shut.rules
udevadm control --reload
start=$(now_ms)
udevadm trigger --subsystem-match=video4linux --action=change
served_in_time "failed open" "$start"
back "failed open" "$start"

# ---- a program that dies again and again ----------------------------------------------------------

# kill_until_failed UNIT: each time that it has been started again.
kill_until_failed() {
    local pid
    for _ in {1..20}; do
        pid=$(main_pid "$1")
        [ "$pid" = 0 ] || kill -KILL "$pid"
        wait_for 60 settled "$1" "$pid" || return 1
        ! systemctl -q is-failed "$1" || return 0
    done
    return 1
}

# settled UNIT PID: failed for good, or running as a process other than that.
settled() {
    systemctl -q is-failed "$1" || { [ "$(main_pid "$1")" != 0 ] && [ "$(main_pid "$1")" != "$2" ]; }
}

guide '^systemctl (reset-failed|start) korvane' >/run/mend
check_equal "the guide says in two lines how it is mended" 2 "$(wc -l </run/mend)"
bash -e /run/mend
for unit in hwservicemanager desktop-camera keeper camera; do
    check "korvane-$unit does not loop: it has failed" kill_until_failed "korvane-$unit"
    start=$(now_ms)
    check "the guide mends it" bash -e /run/mend
    back "korvane-$unit failed" "$start"
done

# ---- how it is locked up ----------------------------------------------------------------------------

for unit in hwservicemanager gadget desktop-camera keeper camera; do
    score=$(systemd-analyze security --no-pager "korvane-$unit.service" |
        sed -nE 's/.*exposure level for .*: ([0-9.]+) .*/\1/p')
    echo "exposure of korvane-$unit: $score"
    check "korvane-$unit is exposed by 2.0 at most" awk -v s="$score" 'BEGIN {exit !(s != "" && s <= 2.0)}'
done
finish
