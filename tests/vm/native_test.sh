#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# native_test.sh PROGRAM...: run whole test programs in the machine, one after the other. The output of
# each stays in $SHARE. Ends with the numbers of tests in all of them.
. "$(dirname "$0")/lib.sh"

# run_program PATH: one check, named with the number of its tests.
run_program() {
    local name=${1##*/} log status=0
    log=$SHARE/$name.log
    "$1" --gtest_color=no >"$log" 2>&1 </dev/null || status=$?
    local run skipped
    run=$(counted PASSED "$log") skipped=$(counted SKIPPED "$log")
    if [ $status = 0 ] && [ $((run + skipped)) -gt 0 ]; then
        ok "$name: $run passed, $skipped skipped"
        tests_passed=$((tests_passed + run)) tests_skipped=$((tests_skipped + skipped))
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

# Such programs know no binder driver: they run on any machine.
rm -f /dev/hwbinder

tests_passed=0 tests_skipped=0
for program; do
    run_program "$program"
done
echo "in the programs that passed: $tests_passed tests passed, $tests_skipped skipped"
finish
