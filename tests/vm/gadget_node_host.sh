#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# Captures 640x480 YUYV from the webcam in the test machine, as soon as there is one, until it is ended.
. "$(dirname "$0")/lib.sh"
node=$(wait_host_node 30) || exit 1
exec v4l2-ctl -d "$node" --set-fmt-video=width=640,height=480,pixelformat=YUYV --stream-mmap=4 \
    --stream-count=100000 --stream-to=/dev/null
