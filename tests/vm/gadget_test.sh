# SPDX-License-Identifier: Apache-2.0
# korvane-gadget: what it leaves in configfs, and that it leaves nothing behind.
. "$(dirname "$0")/lib.sh"
g1=/config/usb_gadget/g1
uvc=$g1/functions/uvc.0

one_line() {
    tr -s '\n' ' ' <"$1"
}

check_attribute() {
    check_equal "${1#"$uvc"/} is $2" "$2 " "$(one_line "$1")"
}

# ---- the default function, from modules that are not loaded yet ---------------------------------

check_not "starts without the function's module" test -d /sys/module/usb_f_uvc
need "builds and binds the default function" gadget up
check_equal "is bound" dummy_udc.0 "$(cat $g1/UDC)"
node=$(gadget_node)
check "has a video node" test -c "$node"
check "has the gadget driver behind it" sh -c "v4l2-ctl -d $node --info | grep -q 'Driver name *: g_uvc'"
check_not "shows the host no camera before a program serves it" host_node
check_equal "lists formats and frames as the host numbers them" \
"bound to dummy_udc.0, not attached
format 1 frame 1: YUY2 640x480 at 30,15
format 1 frame 2: YUY2 1280x720 at 10,5
format 2 frame 1: mjpeg 640x480 at 30
format 2 frame 2: mjpeg 1280x720 at 30
format 2 frame 3: mjpeg 1920x1080 at 30" "$(gadget status)"

check_attribute $uvc/streaming_maxpacket 3072
check_attribute $uvc/control/header/h/bcdUVC 272
check_attribute $uvc/streaming/uncompressed/u/bBitsPerPixel 16
check_equal "has the sixteen bytes of YUY2's GUID" 5955593200001000800000aa00389b71 \
    "$(od -An -v -tx1 $uvc/streaming/uncompressed/u/guidFormat | tr -d ' \n')"
frame=$uvc/streaming/uncompressed/u/1280x720
check_attribute $frame/dwFrameInterval "1000000 2000000"
check_attribute $frame/dwDefaultFrameInterval 1000000
check_attribute $frame/dwMaxVideoFrameBufferSize 1843200
check_attribute $frame/dwMaxBitRate 147456000
check_attribute $frame/dwMinBitRate 73728000
check_attribute $uvc/streaming/mjpeg/m/1920x1080/dwMaxVideoFrameBufferSize 2073600
check_attribute $g1/bDeviceClass 0xef
check_attribute $g1/bDeviceSubClass 0x02
check_attribute $g1/bDeviceProtocol 0x01
check "has a serial number of sixteen digits" grep -qE '^[0-9A-F]{16}$' $g1/strings/0x409/serialnumber
check_attribute $uvc/function_name "Korvane Webcam"
for unit in processing terminal/camera; do
    controls=$uvc/control/$unit/default/bmControls
    case $(stat -c %a "$controls") in
    444) ok "leaves the $unit unit's controls as this kernel fixes them" ;;
    *) check_equal "offers no controls of the $unit unit" 0 "$(sort -u "$controls")" ;;
    esac
done
for speed in fs hs ss; do
    check "streams at $speed" test -L $uvc/streaming/class/$speed/h
done

check_refused "refuses a second function" "g1 is there already" gadget up
check_refused "refuses to bind twice" "already bound to dummy_udc.0" gadget bind
check "unplugs" gadget unbind
check_equal "is unbound" "not bound" "$(gadget status | head -n 1)"
check_not "has no video node then" gadget_node
check_refused "refuses to unplug twice" "not bound" gadget unbind
check_refused "refuses a controller that is not there" "no device controller 'x' .*dummy_udc.0" \
    env UDC=x "$ROOT/vm/gadget" bind
check "plugs in again" gadget bind
check "has the node again" gadget_node
check "removes a bound function" gadget down
check_equal "leaves nothing in configfs" "" "$(ls /config/usb_gadget)"
check_not "leaves no video node" gadget_node
check_equal "mounts configfs once" 1 "$(grep -c ' configfs ' /proc/mounts)"

# ---- other functions ----------------------------------------------------------------------------

check "builds NV12 behind a serial port" gadget up --nv12 --acm --no-bind
check_equal "stays unplugged when asked" "not bound" "$(gadget status | head -n 1)"
check_equal "has the sixteen bytes of NV12's GUID" 4e56313200001000800000aa00389b71 \
    "$(od -An -v -tx1 $uvc/streaming/uncompressed/u/guidFormat | tr -d ' \n')"
check_attribute $uvc/streaming/uncompressed/u/bBitsPerPixel 12
check_attribute $uvc/streaming/uncompressed/u/640x480/dwMaxVideoFrameBufferSize 460800
check "binds it" gadget bind
check_equal "numbers the camera's interfaces after the serial port's" "2 3 " \
    "$(cat $uvc/control/bInterfaceNumber $uvc/streaming/bInterfaceNumber | tr '\n' ' ')"
check "removes it" gadget down

check "builds the frames that are asked for" gadget up --maxpacket 1024 \
    --format mjpeg:1920x1080@5,60,30 --format mjpeg:160x120@15
check_equal "orders them by size, and their rates" \
"format 1 frame 1: mjpeg 160x120 at 15
format 1 frame 2: mjpeg 1920x1080 at 60,30,5" "$(gadget status | tail -n +2)"
check_attribute $uvc/streaming_maxpacket 1024
check_attribute $uvc/streaming/mjpeg/m/1920x1080/dwDefaultFrameInterval 2000000
check "removes them" gadget down

# ---- misuse -------------------------------------------------------------------------------------

refused() {
    check_refused "refuses $1" "^korvane-gadget: $2" "$ROOT/vm/gadget" "${@:3}"
}
refused "no command" "unknown command ''"
refused "an unknown command" "unknown command 'start' .*up down reload bind unbind status check keep help" start
refused "an unknown option" "unknown option '--yuv'" up --yuv
refused "a format without a size" "'mjpeg' is not of the kind" up --format mjpeg
refused "a format option without a format" "--format needs" up --format
refused "an unknown format" "unknown format 'h264'" up --format h264:640x480@30
refused "a size of nothing" "size '0x480' is not" up --format yuyv:0x480@30
refused "a size that is none" "size '640' is not" up --format yuyv:640@30
refused "a size beyond the field" "size '65536x1' is not" up --format mjpeg:65536x1@30
refused "an odd width of pairs" "size '641x480': yuyv needs an even width" up --format yuyv:641x480@30
refused "an odd height of pairs" "size '640x481': nv12 needs an even height" \
    up --format nv12:640x481@30
refused "a zero rate" "rate '0' is not" up --format yuyv:640x480@30,0
refused "a rate that is not a number" "rates 'fast' are not" up --format yuyv:640x480@fast
refused "both uncompressed formats" "yuyv and nv12 exclude each other" \
    up --format yuyv:640x480@30 --format nv12:320x240@30
refused "two frames without an order" "mjpeg:.* has as many pixels as another" \
    up --format mjpeg:640x480@30 --format mjpeg:480x640@30
refused "a packet that no endpoint has" "--maxpacket is '1500'" up --maxpacket 1500
refused "arguments where there are none" "down takes no arguments" down now
refused "to unplug what is not there" "there is no $g1" unbind
refused "to plug in what is not there" "there is no $g1" bind
refused "to remove what is not there" "there is no $g1" down
check_refused "refuses all but root" "only root can do this" \
    setpriv --reuid 65534 --clear-groups "$ROOT/vm/gadget" up

mkdir /config/usb_gadget/other /config/usb_gadget/other/configs/c.1 \
    /config/usb_gadget/other/functions/acm.0
ln -s /config/usb_gadget/other/functions/acm.0 /config/usb_gadget/other/configs/c.1/
echo dummy_udc.0 >/config/usb_gadget/other/UDC
refused "a controller that another gadget has" "the kernel refuses 'dummy_udc.0' .*busy" up
check_not "leaves nothing of what failed" test -e $g1
echo >/config/usb_gadget/other/UDC
modprobe -r dummy_hcd
refused "a machine without a controller" "no device controller: /sys/class/udc is empty" up
check_not "leaves nothing without a controller" test -e $g1
finish
