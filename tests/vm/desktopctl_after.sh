#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# Looks at what desktopctl_test.sh left: pictures that decode, and a dump whose every frame the host
# received, byte for byte.
set -euo pipefail

status=0

# picture FILE FORMAT SIZE: decodes as one picture of that size.
picture() {
    local said
    said=$(ffprobe -v error -show_entries stream=codec_name,width,height -of csv=p=0 "$SHARE/$1" 2>&1) || true
    if [ "$said" = "$2,${3/x/,}" ] && ffmpeg -v error -xerror -i "$SHARE/$1" -f null - 2>"$SHARE/$1.error"; then
        echo "ok    $1 is a picture of $3"
    else
        echo "FAIL  $1 is no $2 of $3: $said $(cat "$SHARE/$1.error" 2>/dev/null)"
        status=1
    fi
}

picture mjpeg.jpg mjpeg 640x480
picture mjpeg.png png 640x480
picture yuyv.png png 640x480

python3 - "$SHARE/mjpeg.dump" "$SHARE/mjpeg.raw" "$SHARE/mjpeg.jpg" <<'END' || status=1
import sys

def frames(path):
    data = open(path, 'rb').read()
    starts = []
    at = data.find(b'\xff\xd8\xff')
    while at >= 0:
        starts.append(at)
        at = data.find(b'\xff\xd8\xff', at + 1)
    return [data[a:b] for a, b in zip(starts, starts[1:] + [len(data)])]

dumped, received = frames(sys.argv[1]), frames(sys.argv[2])
known = {frame: number for number, frame in enumerate(received)}
numbers = [known.get(frame, -1) for frame in dumped]
if len(dumped) < 10:
    sys.exit(f'FAIL  the dump has only {len(dumped)} frames')
if -1 in numbers:
    sys.exit(f'FAIL  the host did not receive {numbers.count(-1)} of {len(dumped)} dumped frames')
if numbers != list(range(numbers[0], numbers[0] + len(numbers))):
    sys.exit(f'FAIL  the dump has other frames between than the host: {numbers}')
print(f'ok    the host received all {len(dumped)} dumped frames, {numbers[0]} to {numbers[-1]}')
if open(sys.argv[3], 'rb').read() not in known:
    sys.exit('FAIL  the snapshot is no frame of the host\'s')
print('ok    the snapshot is one of the host\'s frames')
END
exit $status
