#!/bin/bash
# Runs the commands of README.md and docs/ that can be run here; the table "commands" beside this says why
# each other one isn't. A command or sample that isn't in the table fails, and so does a row that no
# longer stands for anything.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
cd "${KORVANE_ROOT:-$here/../..}"
table=${KORVANE_DOCS_TABLE:-$here/commands}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

problem() {
    echo "$*" >&2
    failed=1
}

# Lines "FILE|LINE": each command of the blocks without a language, the first line of any other block. A
# block whose first command begins with what the table has as "skip" or "test" is one thing: a walk at
# another machine, for example, is not taken apart.
samples() {
    awk '
        function trimmed(text) {
            sub(/^ +/, "", text)
            if (language == "") sub(/ +#.*$/, "", text)
            sub(/ +$/, "", text)
            return text
        }
        /^ *```/ {
            if (inside) {inside = 0; next}
            inside = 1; first = 1; language = $0
            sub(/^ *```/, "", language)
            next
        }
        !inside || trimmed($0) == "" {next}
        first || (language == "" && each) {print FILENAME "|" trimmed($0)}
        # Commands of the project stand for themselves; of other blocks the first line names the block.
        first {each = $0 ~ /^(([A-Z]+=[^ ]+ )?(scripts|vm|build)\/|ctest|[A-Z]+=[^ ]+ ctest)/; first = 0}
    ' README.md docs/*.md
}

# The table as lines "FILE|HOW|LINE".
rows() {
    sed -e '/^#/d' -e '/^$/d' -e 's/ *| */|/2;s/ *| */|/' "$table"
}

run() {
    timeout 120 bash -c "$1" >"$work/said" 2>&1 ||
        problem "$2: '$1' fails: $(tail -n 3 "$work/said")"
}

# try FILE HOW LINE
try() {
    case $2 in
    run) run "$3" "$1" ;;
    list)
        run "$3 -N" "$1"
        ! grep -q 'Total Tests: 0' "$work/said" || problem "$1: '$3' names no test"
        ;;
    'test '*) grep -qx " *Test *#[0-9]*: ${2#test }" "$work/tests" || problem "$1: there is no ${2}" ;;
    'skip '?*) ;;
    *) problem "the table knows no way '$2'" ;;
    esac
}

ctest --test-dir build -N >"$work/tests"
samples >"$work/samples"
[ "$(wc -l <"$work/samples")" -gt 20 ] || problem "the documents hold hardly any commands"
while IFS= read -r sample; do
    grep -qxF -- "$sample" <(rows | sed 's/|[^|]*|/|/') ||
        problem "${sample%%|*} has what tests/docs/commands doesn't know: ${sample#*|}"
done <"$work/samples"
while IFS='|' read -r file how line; do
    grep -qxF -- "$file|$line" "$work/samples" || problem "$file has no more: $line"
    try "$file" "$how" "$line"
done < <(rows)
exit $failed
