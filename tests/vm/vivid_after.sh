#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# Looks at what vivid_test.sh left: vivid's eight colour bars, all of them, moving.
set -euo pipefail

status=0

# hues FILE FORMAT-OPTIONS...: how often each of the eight bars' colours stands in the last frame.
hues() {
    local file=$1
    shift
    ffmpeg -v error "$@" -i "$file" -vf scale=64:48:flags=neighbor -f rawvideo -pix_fmt rgb24 - |
        tail -c $((64 * 48 * 3)) | od -An -v -tu1 -w3 | awk '
        { bar = ($1 > 96) * 4 + ($2 > 96) * 2 + ($3 > 96); seen[bar]++ }
        END { for (i = 0; i < 8; i++) printf "%d ", seen[i] }'
}

# pictures FILE FORMAT-OPTIONS...: how many different pictures there are.
pictures() {
    local file=$1
    shift
    ffmpeg -v error "$@" -i "$file" -f framemd5 - | grep -v '^#' | awk '{print $NF}' | sort -u | wc -l
}

look() {
    local name=$1 file=$SHARE/$1.raw counts count
    shift
    counts=$(hues "$file" "$@")
    for count in $counts; do
        if [ "$count" -lt 100 ]; then
            echo "FAIL  $name: a colour bar is missing: $counts"
            status=1
            return
        fi
    done
    echo "ok    $name shows all eight colour bars: $counts"
    count=$(pictures "$file" "$@")
    # vivid draws in the kernel, slowly here: the pipeline repeats its pictures at the stream's rate.
    if [ "$count" -lt 2 ]; then
        echo "FAIL  $name does not move"
        status=1
    else
        echo "ok    $name moves: $count different pictures"
    fi
}

look yuyv -f rawvideo -pix_fmt yuyv422 -video_size 640x480
look mjpeg -f mjpeg
exit $status
