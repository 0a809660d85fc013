#!/bin/bash
# No rule of the policy is superfluous, and none can be lost unnoticed: each statement of it, and each
# right of a list, left out of a copy, fails the check of the policy.
# shellcheck source=tests/device/policy.sh
. "$(dirname "$0")/policy.sh"

work=$(mktemp -d)
trap 'rm -rf "$problems" "$work"' EXIT

# omissions FILE: a line "SED_SCRIPT|STATEMENT" for each thing to leave out. A statement ends with ";" or a macro's ")"; lists of rights are in braces.
omissions() {
    awk '
        {code = $0; sub(/#.*/, "", code)}
        code ~ /[^ ]/ {
            if (!start) {start = NR; text = ""; count = 0; braces = 0}
            text = text " " code
            gsub(/[{}]/, " & ", code)
            words = split(code, word, /[ ;]+/)
            for (i = 1; i <= words; ++i) {
                if (word[i] == "{") braces = 1
                else if (word[i] == "}") braces = 0
                else if (braces && word[i] != "") part[++count] = NR "s/\\<" word[i] "\\>//"
            }
        }
        code ~ /[;)] *$/ {
            print start "," NR "d|" text
            for (i = 1; i <= count; ++i) print part[i] "|" text
            start = 0
        }' "$1"
}

# A folder for each omission: the policy without it, compiled where it still compiles.
number=0
for file in "$policy"/attributes "$policy"/*.te; do
    while IFS='|' read -r script text; do
        number=$((number + 1))
        mkdir "$work/$number"
        cp "$policy"/attributes "$policy"/*.te "$work/$number"
        sed -i "$script" "$work/$number/${file##*/}"
        echo "${file##*/}: '$script' from:$text" >"$work/$number/what"
        compile_policy "$work/$number/built" "$work/$number" || rm -f "$work/$number/built"
    done < <(omissions "$file")
done
[ $number -gt 50 ] || problem "there is hardly anything to leave out"

missed=$("$checks/policy/rights.py" "$checks/policy/rights" "$work"/*/built || [ $? = 1 ])
for built in "$work"/*/built; do
    [[ $missed == *"$built: "* ]] || problem "nobody misses what is left out: $(<"${built%/*}/what")"
done
finish
