# shellcheck shell=bash
# What the checks of the phone's build share. A check looks at the sources below KORVANE_ROOT (this
# repository, or a copy with a fault in it), says each thing that is wrong, and fails if there is one.
# KORVANE_BUILD is the folder that CMake has built in.
set -euo pipefail

checks=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
: "${KORVANE_BUILD:=$checks/../../build}"
cd "${KORVANE_ROOT:-$checks/../..}"
# shellcheck disable=SC2034 # the checks use it
service=hardware/interfaces/camera/desktop/2.0/default
problems=$(mktemp)
trap 'rm -f "$problems"' EXIT

problem() {
    echo "$*" | tee -a "$problems" >&2
}

# Ends the check.
finish() {
    [ ! -s "$problems" ]
    exit
}

# listed FILE: its lines without comments and empty ones.
listed() {
    sed -e 's/[[:space:]]*#.*//' -e '/^$/d' "$1"
}

# same WHAT HERE THERE: problems for every line that only one of the texts has.
same() {
    local line
    while read -r line; do
        [ -z "$line" ] || problem "$1: $line"
    done < <(diff <(sort -u <<<"$2") <(sort -u <<<"$3") |
        sed -n -e "s/^< \(..*\)/'\1' only in the first/p" -e "s/^> \(..*\)/'\1' only in the second/p")
}

# has LINES LINE: one of the lines is this one.
has() {
    [[ $'\n'$1$'\n' == *$'\n'"$2"$'\n'* ]]
}
