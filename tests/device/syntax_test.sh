#!/bin/bash
# syntax_test.sh [SOURCE...]: the service's sources (or those) compile as the phone compiles them:
# clang++ and libc++, C++17 without exceptions and RTTI, unsigned characters. Only checked, not compiled;
# a source is checked again when it or one of its headers has changed. The build must be done: it
# generates headers.
# shellcheck source=tests/device/lib.sh
. "$(dirname "$0")/lib.sh"

stamps=$KORVANE_BUILD/tests/device/syntax
mkdir -p "$stamps"
flags=(-std=c++17 -stdlib=libc++ -fno-exceptions -fno-rtti -funsigned-char -fsyntax-only)

# commands: lines "SOURCE|FLAGS" with the paths and definitions that Linux compiles it with.
commands() {
    awk -v root="$(realpath "$checks/../..")/" '
        /^ *"command": / {command = $0}
        /^ *"file": / {
            split($0, field, "\"")
            if (index(field[4], root "hardware/") != 1) next
            kept = ""
            count = split(command, word, " ")
            for (i = 1; i <= count; ++i) {
                if (word[i] == "-isystem") kept = kept " -isystem " word[++i]
                else if (word[i] ~ /^-[DIW]/) kept = kept " " word[i]
            }
            print substr(field[4], length(root) + 1) "|" kept
        }' "$KORVANE_BUILD/compile_commands.json" | sort -u
}

# fresh STAMP: nothing that was read for it has changed since.
fresh() {
    local file
    [ -f "$1" ] && [ -f "$1.d" ] || return
    while read -r file; do
        [ -e "$file" ] && [ ! "$file" -nt "$1" ] || return
    done < <(sed 's/^[^ ]*://; s/\\$//' "$1.d" | tr -s ' ' '\n' | sed '/^$/d')
}

look_at() {
    local source=$1 options=$2 stamp
    stamp=$stamps/$(cksum <<<"$PWD $source $options ${flags[*]}" | tr ' ' -)
    ! fresh "$stamp" || return 0
    # shellcheck disable=SC2086 # words are wanted
    clang++ "${flags[@]}" $options -MD -MF "$stamp.d" "$source" && touch "$stamp"
}

looked=0
while IFS='|' read -r source options; do
    if [ $# -gt 0 ] && ! has "$(printf '%s\n' "$@")" "$source"; then
        continue
    fi
    looked=$((looked + 1))
    look_at "$source" "$options" || problem "$source does not compile as on the phone"
done < <(commands)
[ $looked -gt 0 ] || problem "there is no source to look at"
finish
