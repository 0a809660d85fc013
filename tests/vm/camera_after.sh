#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# Looks at what camera_test.sh left: cards while the source was away or covered, its pictures while it
# was there, in one stream.
set -euo pipefail

checker=${NATIVE_BUILD:-$KORVANE_BUILD}/bin/testcard-check
frame=$((640 * 360 * 3 / 2))
status=0

# look NAME PATTERN TEXT: what the frames of a capture say, one word for each run of the same, is as the
# pattern has it. On the source's own pictures there is no code.
look() {
    local film=$SHARE/$1.raw runs
    # The capture was ended from outside, within a frame perhaps.
    truncate -s $(($(stat -c %s "$film") / frame * frame)) "$film"
    runs=$("$checker" --codes --format NV12 --size 640x360 "$film" |
        sed -E 's/^[0-9]+ //' | uniq | paste -sd, )
    if [[ $runs =~ ^$2$ ]]; then
        echo "ok    the host saw $3: $runs"
    else
        echo "FAIL  the host did not see $3, but: $runs"
        status=1
    fi
}

look plugged '(starting,)?absent,no code,(failed|silent),absent,no code' \
    'a card whenever there was no source, and its pictures again'
look covered '(starting,)?no code,covered,(starting,)?no code' 'a card while the camera was covered'
exit $status
