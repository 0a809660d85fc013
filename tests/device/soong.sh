# shellcheck shell=bash
# Reads the phone's build: every Android.bp of the sources.
# shellcheck source=tests/device/lib.sh
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

android_bp_files() {
    echo ./Android.bp
    find external hardware tests -name Android.bp
}

soong_facts=$(android_bp_files | sed 's|^\./||' | xargs awk -f "$checks/soong.awk") || exit 1

# modules TYPE_PATTERN: the names of the modules of such a type.
modules() {
    awk -F '|' -v type="^($1)\$" '$4 == ":" && $2 ~ type {print $1}' <<<"$soong_facts"
}

folder_of() {
    awk -F '|' -v name="$1" '$4 == ":" && $1 == name {print $3; exit}' <<<"$soong_facts"
}

# own_values MODULE PROPERTY_PATTERN: what stands in the module itself.
own_values() {
    awk -F '|' -v name="$1" -v property="^($2)\$" '$1 == name && $4 ~ property {print $5}' \
        <<<"$soong_facts"
}

# values MODULE PROPERTY_PATTERN: with what the module takes from its defaults.
values() {
    own_values "$1" "$2"
    local defaults
    while read -r defaults; do
        [ -z "$defaults" ] || values "$defaults" "$2"
    done < <(own_values "$1" defaults)
}

# files MODULE PROPERTY_PATTERN: the same, as paths from the root.
files() {
    local folder
    folder=$(folder_of "$1")
    own_values "$1" "$2" | sed -e "s|^|$folder/|" -e 's|^\./||' -e 's|/\.$||'
}
