#!/bin/bash
# The HIDL packages are frozen as recorded, the phone's build accepts the record with a platform that
# is frozen too, and it builds the packages from what they import.
# shellcheck source=tests/device/soong.sh
. "$(dirname "$0")/soong.sh"

root=$(modules hidl_package_root)
work=$(mktemp -d)
trap 'rm -rf "$problems" "$work"' EXIT

generate() {
    hidl-gen -R -p "$work" -r android.hidl:platform/hidl -r android.hardware:platform/hardware \
        -r "$root:$(folder_of "$root")" "$@"
}

# The phone's tree as far as the compiler is concerned: every root with its current.txt.
make_phone_tree() {
    local package
    mkdir -p "$work/hardware"
    cp -r platform/interfaces "$work/platform"
    cp -r hardware/interfaces "$work/hardware/"
    for package in android.hidl.{base,manager}@1.0 android.hardware.media@1.0 \
        android.hardware.graphics.{common@1.0,common@1.1,common@1.2,bufferqueue@1.0,bufferqueue@2.0}; do
        generate -L hash "$package"
    done >"$work/hashes"
    grep android.hidl "$work/hashes" >"$work/platform/hidl/current.txt"
    grep android.hardware "$work/hashes" >"$work/platform/hardware/current.txt"
}

# The compiler writes the hash of a frozen interface beside its bytes, and zeros for another.
check_frozen() {
    local package=$1 hash
    generate -o "$work/out" -L c++-sources "$package" || { problem "$package is refused"; return; }
    hash=$(awk -v file="$package::ICameraDesktop" '$2 == file {print $1}' \
        "$(folder_of "$root")/current.txt")
    grep -qF "/* ${hash:-none} */" "$work/out/$(tr .@ / <<<"${package%@*}")/${package#*@}"/*All.cpp ||
        problem "$package is generated without its hash: it does not count as frozen"
}

# What the compiler itself would write into Android.bp, as far as it is about the package.
check_module() {
    local package=$1 property
    generate -o "$work/bp" -L androidbp "$package"
    local wanted
    wanted=$(find "$work/bp" -path "*/${package#*@}/Android.bp" -exec awk -f "$checks/soong.awk" {} +)
    for property in root srcs interfaces; do
        same "$property of $package (phone, compiler)" "$(own_values "$package" $property)" \
            "$(awk -F '|' -v property=$property '$4 == property {print $5}' <<<"$wanted")"
    done
}

KORVANE_ROOT=$PWD "$checks/../../scripts/freeze-interfaces" --check || problem "not as recorded"
[ "$(own_values "$root" use_current)" = true ] || problem "$root doesn't use current.txt"
make_phone_tree
for package in $(modules hidl_interface); do
    check_frozen "$package"
    check_module "$package"
done
finish
