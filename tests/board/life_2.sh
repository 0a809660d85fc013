# SPDX-License-Identifier: Apache-2.0
# The second boot: settings that change, and wrong ones; a node that can't be opened for a while.
. /run/host/lib.sh
. /run/host/board.sh
conf=/etc/korvane/gadget.conf

need "it is a webcam after a boot" wait_for 90 enumerated
took "from the kernel's start to a webcam" 0

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

# refused LINE REASON: a wrong line changes nothing and its reason is where one looks.
refused() {
    cp /run/gadget.conf $conf
    echo "$1" >>$conf
    check_not "a reload with '$1' fails" systemctl reload korvane-gadget
    check "its reason is in the unit's status" status_says "$2"
    check_refused "check says it too" "$(sed 's/[]()*.[]/\\&/g' <<<"$2")" korvane-gadget check
}
refused 'format = h264:640x480@30' "gadget.conf:$(($(wc -l <$conf) - 1)): unknown format 'h264' (known: yuyv nv12 mjpeg)"
refused 'colour = red' "unknown key 'colour'"
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
start=$(now_ms)
systemctl start korvane-webcam.target
back "stopped and started" "$start"

echo 'source = nosuchsrc' >/etc/korvane/camera.conf
systemctl restart korvane-camera
check "a wrong camera ends in a clear state" wait_for 150 \
    sh -c 'systemctl is-failed korvane-camera && systemctl status --full korvane-camera | grep -q nosuchsrc'
echo 'source = card' >/etc/korvane/camera.conf
systemctl reset-failed korvane-camera
systemctl start korvane-camera
check "the right one shows pictures" picture_within 30

# ---- a camera of one's own ------------------------------------------------------------------------

systemctl stop korvane-camera
check_not "without a camera there is no picture" timeout 5 v4l2-ctl -d "$(host_node)" \
    --stream-mmap=4 --stream-count=1 --stream-to=/dev/null
start example setpriv --reuid korvane-camera --init-groups /run/host/example-camera
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
back "failed open" "$start"

# ---- how it is locked up ----------------------------------------------------------------------------

for unit in hwservicemanager gadget desktop-camera keeper camera; do
    score=$(systemd-analyze security --no-pager "korvane-$unit.service" |
        sed -nE 's/.*exposure level for .*: ([0-9.]+) .*/\1/p')
    echo "exposure of korvane-$unit: $score"
    check "korvane-$unit is exposed by 2.0 at most" awk -v s="$score" 'BEGIN {exit !(s != "" && s <= 2.0)}'
done
finish
