#!/bin/bash
# The sources include only what the phone has, each module lists the libraries that it includes from,
# and nothing is used that only one of the two builds offers.
# shellcheck source=tests/device/soong.sh
. "$(dirname "$0")/soong.sh"

# Lines "HEADER FILE" of the system headers of a module's sources, and of the headers beside them.
included() {
    local module=$1
    {
        files "$module" srcs
        find "$(folder_of "$module")" -name '*.h'
    } | grep -E '\.(cpp|h)$' | sort -u |
        xargs sed -n 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*<\([^>]*\)>.*/\1 /p;T;F' |
        paste -d '' - - | sort -u
}

# provider HEADER: the module of the table that it comes from.
provider() {
    local module patterns pattern
    while read -r module _ _ patterns; do
        for pattern in $patterns; do
            # shellcheck disable=SC2053 # a pattern is wanted
            [[ $1 != $pattern ]] || { echo "$module"; return; }
        done
    done <<<"$table"
}

check_module() {
    local module=$1 used header file from
    used=$(values "$module" '(shared|static|header)_libs')
    while read -r header file; do
        ! has "$everywhere" "$header" || continue
        from=$(provider "$header")
        if [ -z "$from" ]; then
            problem "$file includes <$header>, which is not known to be on the phone"
        elif [ "$from" != "$module" ] && ! has "$used" "$from"; then
            problem "$file includes <$header>, but $module does not list $from"
        fi
    done < <(included "$module")
}

check_api() {
    local pattern reason found
    while IFS=$'\t' read -r pattern reason; do
        found=$(grep -rnE --include='*.cpp' --include='*.h' -e "$pattern" hardware |
            grep -vE '^[^:]*:[0-9]+: *(//|/?\*)' || true)
        [ -z "$found" ] || problem "$found"$'\n'"    $reason"
    done < <(grep -v '^#' "$checks/api.txt")
}

set -f # patterns of the table are no files
table=$(listed "$checks/modules.txt")
everywhere=$(listed "$checks/headers.txt" | tr ' ' '\n')
for module in $(modules 'cc_library_static|cc_binary'); do
    check_module "$module"
done
check_api
finish
