#!/bin/bash
# Program, init's file, manifest, policy and guide speak of the same service.
# shellcheck source=tests/device/soong.sh
. "$(dirname "$0")/soong.sh"

program=$(modules cc_binary)
rc=$(files "$program" init_rc)
manifest=$(files "$program" vintf_fragments)
matrix=$service/framework_compatibility_matrix.xml
guide=docs/phone.md
path=/vendor/bin/$(own_values "$program" relative_install_path)/$program

# ---- what the sources offer ---------------------------------------------------------------------

# Lines "PACKAGE@VERSION::INTERFACE INSTANCE": every version that declares what the program registers.
offered() {
    local instance package
    instance=$(sed -n 's/.*registerAsService("\([^"]*\)").*/\1/p' $service/service.cpp)
    for package in $(modules hidl_interface); do
        ! has "$(own_values "$package" srcs)" ICameraDesktop.hal ||
            echo "$package::ICameraDesktop $instance"
    done
}

# ---- what the files say -------------------------------------------------------------------------

rc_option() {
    awk -v option="$1" '$1 == option {$1 = ""; sub(/^ /, ""); print}' "$rc"
}

xml() {
    xmllint --xpath "$2" "$1" 2>/dev/null || true
}

# The same lines from a manifest or a matrix.
declared() {
    local version name interface instance
    name=$(xml "$1" '//hal/name/text()')
    interface=$(xml "$1" '//hal/interface/name/text()')
    instance=$(xml "$1" '//hal/interface/instance/text()')
    for version in $(xml "$1" '//hal/version/text()'); do
        echo "$name@$version::$interface $instance"
    done
}

check_rc() {
    [ "$(rc_option service | wc -l)" = 1 ] || problem "$rc has not one service"
    same "program of $rc (file, build)" "$(rc_option service | awk '{print $2}')" "$path"
    same "interfaces of $rc (file, sources)" "$(rc_option interface)" "$(offered)"
    [ "$(rc_option class)" = hal ] || problem "$rc: the class is not hal"
    [ "$(rc_option user)" = cameraserver ] || problem "$rc: the user is not cameraserver"
    [ "$(rc_option group)" = camera ] || problem "$rc: the group is not camera"
    local known='service|interface|class|user|group|#.*'
    local others
    others=$(awk 'NF {print $1}' "$rc" | grep -vxE "$known" || true)
    [ -z "$others" ] || problem "$rc asks for what nothing here needs: $others"
}

check_manifest() {
    local file
    for file in "$manifest" $matrix; do
        xmllint --noout "$file" || problem "$file is no XML"
        same "interfaces of $file (file, sources)" "$(declared "$file")" "$(offered)"
        [ "$(xml "$file" 'count(//hal)') $(xml "$file" 'string(//hal/@format)')" = '1 hidl' ] ||
            problem "$file has not one hal of HIDL"
    done
    [ "$(xml "$manifest" 'name(/*)') $(xml "$manifest" 'string(/*/@type)')" = 'manifest device' ] ||
        problem "$manifest is no device's manifest"
    [ "$(xml "$manifest" '//hal/transport/text()')" = hwbinder ] ||
        problem "$manifest: the transport is not hwbinder"
    [ "$(xml $matrix 'name(/*)') $(xml $matrix 'string(/*/@type)')" = 'compatibility-matrix framework' ] ||
        problem "$matrix is no matrix of the framework"
    [ "$(xml $matrix 'string(//hal/@optional)')" = true ] || problem "$matrix: not optional"
}

type_of() {
    sed 's/.*u:object_r:\([a-z_0-9]*\):s0$/\1/' <<<"$1"
}

check_labels() {
    local pattern context interface
    read -r pattern context < <(listed $service/sepolicy/file_contexts)
    [[ $path =~ ^$pattern$ ]] || problem "file_contexts does not label $path"
    grep -qE "^type $(type_of "$context"),.*\bexec_type\b" $service/sepolicy/*.te ||
        problem "file_contexts: no such type of a program: $context"
    read -r interface context < <(listed $service/sepolicy/hwservice_contexts)
    same "hwservice_contexts (file, sources)" "$interface" \
        "$(offered | sed 's/@[0-9.]*//; s/ .*//' | sort -u)"
    grep -qE "^type $(type_of "$context"),.*\bhwservice_manager_type\b" $service/sepolicy/*.te ||
        problem "hwservice_contexts: no such type: $context"
}

# ---- the guide ----------------------------------------------------------------------------------

tags() {
    grep -rhoP '#define LOG_TAG "\K[^"]+' hardware | sort -u
}

# Each row of the guide's tables of log lines, "| TAG | `format` | ...", is in a source of that tag.
check_guide() {
    same "tags of logcat in $guide (guide, sources)" \
        "$(sed -n 's/^adb logcat -s //p' $guide | tr ' ' '\n')" "$(tags)"
    local tag text rows=0 logged
    while IFS='|' read -r _ tag text _; do
        rows=$((rows + 1))
        tag=$(tr -d ' `' <<<"$tag")
        text=$(sed 's/^ *`//; s/` *$//' <<<"$text")
        # What such sources say, with the strings that stand in pieces put together.
        logged=$(grep -rlF "#define LOG_TAG \"$tag\"" hardware | tr '\n' '\0' | xargs -0 cat |
            tr -d '\n' | sed 's/" *"//g; s/\\"/"/g')
        [[ $logged == *"$text"* ]] ||
            problem "$guide has a line that $tag does not log: $text"
    done < <(grep -E '^\| `[A-Za-z0-9.@-]+` \| `' $guide)
    [ $rows -gt 10 ] || problem "$guide has only $rows log lines"
    grep -qF "0660 system $(rc_option group)" $guide ||
        problem "$guide gives the nodes to another group than $rc"
}

check_rc
check_manifest
check_labels
check_guide
finish
