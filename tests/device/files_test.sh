#!/bin/bash
# Program, init's file, manifest, policy and guide speak of the same service.
# shellcheck source=tests/device/soong.sh
. "$(dirname "$0")/soong.sh"

said=$(mktemp)
trap 'rm -f "$problems" "$said"' EXIT

program=$(modules cc_binary)
rc=$(files "$program" init_rc)
manifest=$(files "$program" vintf_fragments)
matrix=$service/framework_compatibility_matrix.xml
guide=docs/phone.md
checklist=docs/phone-checklist.md
init_rc=$KORVANE_BUILD/tests/init_rc
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

# The file as init reads it, for rc_option.
read_rc() {
    rc_says=$("$init_rc" show "$rc" 2>&1) || problem "$rc is not init's: $rc_says"
}

rc_option() {
    awk -v option="$1" '$1 == option {$1 = ""; sub(/^ /, ""); print}' <<<"$rc_says"
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
    read_rc
    [ "$(rc_option service | wc -l)" = 1 ] || problem "$rc has not one service"
    same "program of $rc (file, build)" "$(rc_option service | awk '{print $2}')" "$path"
    same "interfaces of $rc (file, sources)" "$(rc_option interface)" "$(offered)"
    [ "$(rc_option class)" = hal ] || problem "$rc: the class is not hal"
    [ "$(rc_option user)" = cameraserver ] || problem "$rc: the user is not cameraserver"
    [ "$(rc_option group)" = camera ] || problem "$rc: the group is not camera"
    # select() holds descriptors below 1024.
    [ "$(rc_option rlimit)" = 'nofile 1024 1024' ] || problem "$rc: the limit of descriptors is not 1024"
    [ -z "$(rc_option on)" ] || problem "$rc has actions, which are the board's"
}

check_manifest() {
    local file
    for file in "$manifest" $matrix; do
        xmllint --noout --relaxng "$checks/vintf.rng" "$file" 2>"$said" ||
            problem "$file is not as its grammar has it: $(<"$said")"
        same "interfaces of $file (file, sources)" "$(declared "$file")" "$(offered)"
        [ "$(xml "$file" 'count(//hal)')" = 1 ] || problem "$file has not one hal"
    done
    [ "$(xml "$manifest" 'name(/*)')" = manifest ] || problem "$manifest is no manifest"
    [ "$(xml $matrix 'name(/*)')" = compatibility-matrix ] || problem "$matrix is no matrix"
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

# The service of init that guide and checklist name, and what its process is called there.
check_names() {
    local name
    while read -r name; do
        [ "$name" = "$(rc_option service | awk '{print $1}')" ] ||
            problem "$guide or $checklist names $name, which is no service of $rc"
    done < <(grep -ohE '(init\.svc\.|\bstop )vendor\.[a-z0-9.-]+' $guide $checklist | sed 's/.*\(vendor\.\)/\1/')
    grep -qF "$(sed 's/.*u:object_r:\(.*\)_exec:s0$/u:r:\1:s0/' <(listed $service/sepolicy/file_contexts))" \
        $checklist || problem "$checklist has another domain of the process than file_contexts"
    grep -qF "user \`$(rc_option user)\`" $checklist || problem "$checklist has another user than $rc"
}

# The log texts of the checklist, from rows "... `logcat -d -s TAG...` | `text…`, `text…` | ...": up to what
# is filled in, some source with one of the tags logs them.
check_checklist() {
    local tags text rows=0
    while IFS='|' read -r _ _ tags text _; do
        rows=$((rows + 1))
        tags=$(sed 's/.*logcat -d -s \([^`]*\)`.*/\1/' <<<"$tags")
        while read -r text; do
            # shellcheck disable=SC2086 # words are wanted
            grep -rlE "#define LOG_TAG \"($(tr ' ' '|' <<<"$tags"))\"" hardware | tr '\n' '\0' |
                xargs -0 grep -qF -- "$text" || problem "$checklist waits for what is not logged: $text"
        done < <(grep -oE '`[^`]{2,}`' <<<"$text" | tr -d '`' | sed 's/ *[…/].*//;/^$/d')
    done < <(grep -E '`logcat -d -s ' $checklist)
    [ $rows -gt 1 ] || problem "$checklist has no log lines"
    [ "$(wc -l <$checklist)" -le 40 ] || problem "$checklist is more than a screen"
}

# What the guide gives to init, as init reads it. Conditions beside an event are looked at before the
# board's own lines for that event have run.
check_guide_init() {
    local sections
    sections=$("$checks/guide_init" $guide | "$init_rc" show - 2>&1) ||
        problem "the lines for init in $guide are not init's: $sections"
    grep -qx 'on boot' <<<"$sections" || problem "$guide has no lines for the board's own on boot"
    ! grep -qE '^on [^ =]+ .*=' <<<"$sections" ||
        problem "$guide has an action whose properties are looked at only once"
}

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
check_guide_init
check_names
check_checklist
check_guide
finish
