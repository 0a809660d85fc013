#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# Checks natively what streams_test.sh left in $SHARE: every frame, and prints one table. Fails when
# any frame is lost, repeated, torn, out of order or wrong. SHEETS names a folder for contact sheets.
set -euo pipefail

checker=${NATIVE_BUILD:-$KORVANE_BUILD}/bin/testcard-check
status=0

# value JSON KEY: a number out of the checker's line, or "-".
value() {
    local found
    found=$(grep -oE "\"$2\":[0-9.]+" <<<"$1" | head -n 1) || true
    echo "${found##*:}" | sed 's/^$/-/'
}

milliseconds() {
    [ "$1" = - ] && echo - || echo "$(($1 / 1000))"
}

row() {
    local name=$1 said fourcc size rate sent cpu_us private_kb wrong=0
    # shellcheck disable=SC1090 # the figures are assignments
    . <(tr ' ' '\n' <"$SHARE/$name.figures")
    said=$("$checker" --format "$fourcc" --size "$size" --log "$SHARE/$name.frames" \
        --times "$SHARE/$name.times" ${SHEETS:+--contact-sheet "$SHEETS/$name.png"} \
        "$SHARE/$name.raw") || wrong=$?
    [ $wrong = 0 ] || status=1
    printf '%-6s %-10s %5s %6s %6s %5s %9s %5s %9s %5s %7s %7s %8s %9s  %s\n' "$fourcc" "$size" \
        "$rate" "$(value "$said" rate_fps)" "$(value "$said" drawn)" "$sent" "$(value "$said" received)" \
        "$(value "$said" lost)" "$(value "$said" out_of_order)" "$(value "$said" torn)" \
        "$(milliseconds "$(value "$said" median)")" "$(milliseconds "$(value "$said" max)")" \
        "$cpu_us" "$private_kb" "$([ $wrong = 0 ] && echo right || echo WRONG)"
}

printf '%-6s %-10s %5s %6s %6s %5s %9s %5s %9s %5s %7s %7s %8s %9s  %s\n' format size asked seen \
    drawn sent received lost unordered torn 'lat ms' worst 'cpu us' 'priv kB' pixels
for name in mjpeg yuyv nv12; do
    row $name
done

# ffmpeg takes its time to start and lets frames go by; those that it kept must be the camera's.
if ! said=$("$checker" --format MJPG --size 640x480 --log "$SHARE/ffmpeg.frames" --max-lost 1000 \
    "$SHARE/ffmpeg.raw"); then
    echo "FAIL  what ffmpeg received: $said"
    status=1
fi
exit $status
