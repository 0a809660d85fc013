#!/bin/bash
# What the documents name exists: files that they link to, scripts, sources, functions, tests, and the
# frame source's fatal checks. Looks below KORVANE_ROOT (this repository, or a copy with a fault in it).
set -euo pipefail
cd "${KORVANE_ROOT:-$(dirname "$0")/../..}"
controller=hardware/interfaces/camera/desktop/2.0/default/uvc/UvcGadgetHandler.h
pages=(README.md tests/README.md docs/*.md)
failed=0

problem() {
    echo "$*" >&2
    failed=1
}

temporary=$(mktemp -d)
trap 'rm -rf "$temporary"' EXIT
find -L hardware platform apps bench vm tests \( -name '*.cpp' -o -name '*.h' -o -name '*.hal' \) |
    sort >"$temporary/sources"
# Every word of the sources, and the name of each of them.
{
    xargs grep -hoE '~?\w+' <"$temporary/sources"
    sed 's#.*/##; s#\..*##' "$temporary/sources"
} | sort -u >"$temporary/words"

is_word() {
    grep -qxF -- "$1" "$temporary/words"
}

# ticked FILE: each text between backticks in it, one a line.
ticked() {
    grep -oE '`[^`]+`' "$1" | tr -d '`' | sort -u
}

check_links() {
    local link script
    for link in $(grep -oE '\]\([^)#:& ]+[)#]' "$1" | tr -d '()#]'); do
        [ -e "$(dirname "$1")/$link" ] || problem "$1 links to $link"
    done
    for script in $(grep -oE '(^|[`( ])scripts/[a-z0-9-]+(\.sh)?' "$1" | tr -d '`( ' | sort -u); do
        [ -e "$script" ] || problem "$1 names $script"
    done
}

# Sources by their paths' ends; functions, members and classes by every word of their names.
check_names() {
    local source name word
    for source in $(ticked "$1" | grep -E '^[A-Za-z0-9_/.-]+\.(cpp|h)$'); do
        grep -qE "(^|/)${source//./\\.}$" "$temporary/sources" || problem "$1 names $source"
    done
    for name in $(ticked "$1" | grep -E '^~?[A-Za-z_]\w*(::~?\w+)*(\(.*)?$' | sed 's/(.*//'); do
        for word in ${name//::/ }; do
            is_word "$word" || [ -d "$word" ] || [ -d "tests/$word" ] || problem "$1 names $name"
        done
    done
}

check_tests() {
    local name
    for name in $(grep -oE '\b[A-Z]\w+Test\b' "$1" | sort -u); do
        case $name in
            SomeTest | GoogleTest) ;;
            *) is_word "$name" || problem "$1 names $name" ;;
        esac
    done
}

check_sites() {
    local there here
    there=$(grep -rhoE 'KOR_(CHECK|CHECK_AS|TRESPASS)\([0-9]+' hardware | sed 's/.*(//' | sort -u)
    here=$(sed -n '/^## The fatal checks/,/^## What is idle/p' docs/glossary.md | grep '^|' |
        grep -oE '\b[0-9]{3,4}\b' | sort -u)
    [ "$there" = "$here" ] ||
        problem "docs/glossary.md has other fatal checks than the sources:" \
            "$(diff <(echo "$there") <(echo "$here") | grep '^[<>]' | tr '\n' ' ')"
}

for page in "${pages[@]}"; do check_links "$page"; done
for page in docs/architecture.md docs/glossary.md; do check_names "$page"; done
for page in tests/README.md docs/testing.md $controller; do check_tests "$page"; done
check_sites
exit $failed
