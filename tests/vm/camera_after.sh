#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# Looks at what camera_test.sh left: cards while the source was away, its pictures while it was there,
# in one stream.
set -euo pipefail

checker=${NATIVE_BUILD:-$KORVANE_BUILD}/bin/testcard-check

# What the frames say, one word for each run of the same: no code is on the source's own pictures.
runs=$("$checker" --codes --format NV12 --size 320x240 "$SHARE/film.raw" |
    sed -E 's/^[0-9]+ //' | uniq | paste -sd, )
echo "      the host saw: $runs"
if [[ $runs =~ ^(starting,)?absent,no\ code,(failed|silent),absent,no\ code$ ]]; then
    echo "ok    the host saw a card whenever there was no source, and its pictures again"
else
    echo "FAIL  expected: absent, no code (pictures), failed, absent, no code"
    exit 1
fi
