#!/bin/bash
# The phone builds of the same sources what Linux builds, from libraries that it may use: every
# Android.bp against the CMake targets beside it.
# shellcheck source=tests/device/soong.sh
. "$(dirname "$0")/soong.sh"

linux() {
    awk -v name="$1" -v kind="$2" '$1 == name && $2 == kind {print $3}' "$KORVANE_BUILD/tests/device/linux.txt"
}

# Lists of CMake that stand for no module: warnings are flags, the log's priority is Linux's own.
linux_libraries() {
    linux "$1" library | grep -v -x -e korvane_warnings -e korvane_verbose_log || true
}

# modules.txt: the property that lists a module, and the CMake target that stands for it.
declare -A property_of target_of
while read -r module property target _; do
    property_of[$module]=$property target_of[$module]=$target
done < <(listed "$checks/modules.txt")

check_sources() {
    local module
    for module in $(modules 'cc_library_static|cc_binary|hidl_interface'); do
        same "sources of $module (phone, Linux)" "$(files "$module" srcs)" "$(linux "$module" source)"
    done
    for module in $(modules cc_test); do
        local source
        for source in $(files "$module" srcs); do
            has "$(linux tests source)" "$source" ||
                problem "$module builds $source, which is no unit test on Linux"
        done
    done
    local target
    for target in $(awk '$2 == "source" && $1 != "tests" {print $1}' "$KORVANE_BUILD/tests/device/linux.txt" | sort -u); do
        has "$(modules '.*')" "$target" || problem "no module $target for what CMake builds"
    done
}

check_named_files() {
    local module file
    for module in $(modules '.*'); do
        for file in $(files "$module" 'srcs|init_rc|vintf_fragments|license_text|export_include_dirs|local_include_dirs'); do
            [ -e "$file" ] ||
                problem "$module names $file, which is not there"
        done
    done
}

# Each library must be one of the known, under the property that it belongs to.
check_known() {
    local module property library
    for module in $(modules 'cc_.*'); do
        for property in shared_libs static_libs header_libs; do
            for library in $(own_values "$module" "$property"); do
                [ "${property_of[$library]:-}" = "$property" ] ||
                    problem "$module lists $library in $property, which modules.txt doesn't have there"
            done
        done
        for library in $(own_values "$module" 'whole_static_libs|runtime_libs|include_dirs'); do
            problem "$module uses $library by a property that is not checked"
        done
    done
}

module_for() {
    local module
    for module in "${!target_of[@]}"; do
        [ "${target_of[$module]}" != "$1" ] || echo "$module"
    done
}

check_libraries() {
    local module library target used
    for module in $(modules 'cc_library_static|cc_binary'); do
        used=$(values "$module" '(shared|static)_libs')
        for target in $(linux_libraries "$module"); do
            [ "$target" != debian_android ] || continue
            library=$(module_for "$target")
            has "$used" "${library:-none}" ||
                problem "Linux links $module with $target, the phone does not list ${library:-any such module}"
        done
    done
    local linked
    linked=$(linux libcameradesktop library)
    for library in $(values libcameradesktop '(shared|static)_libs'); do
        target=${target_of[$library]:--}
        [ "$target" = - ] || has "$linked" "$target" ||
            problem "the phone links libcameradesktop with $library, Linux does not link $target"
    done
    has "$(values korvane.hardware.camera.desktop@2.0-service static_libs)" libcameradesktop ||
        problem "the program is not linked with libcameradesktop"
}

check_flags() {
    local module
    for module in $(modules 'cc_library_static|cc_binary|cc_test'); do
        same "flags of $module (phone, Linux)" "$(values "$module" cflags)" "$(linux flags flag)"
        [ "$(values "$module" vendor)" = true ] || problem "$module is no vendor module"
        [ "$(values "$module" cpp_std)" = gnu++17 ] || problem "$module is not C++17"
    done
}

[ "$(modules 'cc_binary|cc_library_static' | wc -l)" = 3 ] ||
    problem "there are other libraries and programs than the three that are known"
check_sources
check_named_files
check_known
check_libraries
check_flags
finish
