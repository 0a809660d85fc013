#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# What scripts/progress.sh shows at a terminal, and that it shows nothing elsewhere.
set -euo pipefail
cd "$(dirname "$0")/../.."
rewrite=$'\r\e[K'
failed=0

# expect WHAT WANTED SEEN
expect() {
    [ "$2" = "$3" ] || { printf '%s\n  wanted: %q\n  seen:   %q\n' "$1" "$2" "$3" >&2; failed=1; }
}

# at_terminal COLUMNS COMMANDS: what the commands print on a terminal of that width.
at_terminal() {
    script -qec "stty cols $1; set -euo pipefail; . scripts/progress.sh; $2" /dev/null </dev/null
}

elsewhere() {
    bash -c "set -euo pipefail; . scripts/progress.sh; $1"
}

export SHELL=/bin/bash
expect 'lines take the place of each other' "${rewrite}one${rewrite}two${rewrite}" \
    "$(at_terminal 80 'printf "one\ntwo\n" | show_line')"
expect 'long lines are cut, so that they fill one row' "${rewrite}123456789${rewrite}" \
    "$(at_terminal 10 'echo 123456789012 | show_line')"
expect 'a line moves no cursor' "${rewrite}a[2Jb${rewrite}" \
    "$(at_terminal 80 'printf "a\e[2J\tb\n" | show_line')"
expect 'what is done is counted' "${rewrite}tidy [1/2] a.cpp${rewrite}tidy [2/2] b.cpp${rewrite}" \
    "$(at_terminal 80 'printf "a.cpp\nb.cpp\n" | count_lines tidy 2')"
expect 'without a terminal nothing is shown' '' \
    "$(elsewhere 'printf "a\nb\n" | show_line; printf "a\nb\n" | count_lines tidy 2')"
expect 'a command that fails still fails' 'status 3' \
    "$(elsewhere '(echo a; exit 3) | show_line || echo "status $?"')"
exit $failed
