#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# native_test.sh PROGRAM...: run whole test programs in the machine, those that need a processor and a
# kernel of their own kind. The output of each stays in $SHARE.
. "$(dirname "$0")/lib.sh"

# run_program PATH: one check, named with the number of its tests.
run_program() {
    local name=${1##*/} log status=0
    log=$SHARE/$name.log
    "$1" --gtest_color=no >"$log" 2>&1 </dev/null || status=$?
    if [ $status = 0 ] && grep -q '^\[  PASSED  \]' "$log"; then
        ok "$name: $(counted PASSED "$log") passed, $(counted SKIPPED "$log") skipped"
    else
        fail "$name" "status $status"$'\n'"$(grep -E '^\[  FAILED  \]|Failure|^Expected' "$log" || tail -n 20 "$log")"
    fi
}

# counted RESULT LOG: how many tests ended so, by the last lines of the program.
counted() {
    local count
    count=$(sed -n "s/^\[  $1 \{1,2\}\] \([0-9]*\) tests\?.*/\1/p" "$2" | tail -n 1)
    echo "${count:-0}"
}

for program; do
    run_program "$program"
done
finish
