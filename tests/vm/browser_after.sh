#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# Looks at what browser_test.sh left: every frame that the hosts kept is one that the camera drew, and
# so is what the browser showed.
set -euo pipefail

checker=$KORVANE_BUILD/bin/testcard-check
status=0

# look NAME FORMAT: all frames of a capture are sound; a host may begin late and leave some out.
look() {
    if "$checker" --format "$2" --size 640x480 --log "$SHARE/camera.frames" --max-lost 1000 \
        "$SHARE/$1.raw"; then
        echo "ok    $1: every frame is as the camera drew it"
    else
        echo "FAIL  $1: see above"
        status=1
    fi
}

look gst-mjpg MJPG
look gst-yuyv YUYV
look opencv YUYV

# The picture stands below the title in the browser's window; its code is that of the test card.
ffmpeg -v error -y -i "$SHARE/browser.png" -vf crop=640:480:0:44 -f rawvideo -pix_fmt nv12 \
    "$SHARE/browser.raw"
code=$("$checker" --codes --format NV12 --size 640x480 "$SHARE/browser.raw")
if [[ $code =~ ^[0-9]+\ none$ ]]; then
    echo "ok    the browser showed the test card's frame ${code% none}"
else
    echo "FAIL  the browser's picture says: $code"
    status=1
fi
exit $status
