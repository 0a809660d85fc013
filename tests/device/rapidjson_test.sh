#!/bin/bash
# RapidJSON's headers in the tree are those of Debian's package, with its notice on them: both builds
# compile the same.
# shellcheck source=tests/device/lib.sh
. "$(dirname "$0")/lib.sh"

wanted=$(mktemp -d)
trap 'rm -rf "$problems" "$wanted"' EXIT
"$checks/../../scripts/vendor-rapidjson" "$wanted" || problem "Debian's headers can't be had"
for name in include NOTICE; do
    while read -r line; do
        problem "external/rapidjson is not as scripts/vendor-rapidjson makes it: $line"
    done < <(diff -rq "external/rapidjson/$name" "$wanted/$name" 2>&1 || true)
done
finish
