# shellcheck shell=bash
# SPDX-License-Identifier: Apache-2.0
# How far something is, for a person at a terminal: one line that rewrites itself. Sourced. Where stdout
# is no terminal nothing of it is shown.

# show_line: shows each line of standard input in the place of the one before, cut to the terminal's
# width, and leaves nothing behind at the end. Call it at the end of a pipe, with pipefail.
show_line() {
    if [ ! -t 1 ]; then
        cat >/dev/null
        return
    fi
    local terminal columns line
    exec {terminal}>&1
    read -r _ columns < <(stty size <&"$terminal") || true
    [ "${columns:-0}" -gt 1 ] || columns=80
    while IFS= read -r line; do
        line=${line//[[:cntrl:]]/}
        printf '\r\e[K%s' "${line::columns-1}"
    done
    printf '\r\e[K'
}

# count_lines WHAT TOTAL: the same for lines that each report one thing done: "WHAT [n/TOTAL] LINE".
count_lines() {
    local line done=0
    while IFS= read -r line; do
        done=$((done + 1))
        echo "$1 [$done/$2] $line"
    done | show_line
}
