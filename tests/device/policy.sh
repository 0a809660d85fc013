# shellcheck shell=bash
# Compiles the service's policy with what stands in for the platform's (policy/) and the guide's lines.
# shellcheck source=tests/device/lib.sh
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

# shellcheck disable=SC2034 # the checks use it
policy=$service/sepolicy
guide=docs/phone.md

# guide_lines LANGUAGE: the guide's lines of that language, "te" or "genfs".
guide_lines() {
    awk -v fence="\`\`\`$1" '{sub(/^ +/, "")} $0 == fence {on = 1; next} /^```/ {on = 0} on' $guide
}

# compile_policy OUTPUT FOLDER [TE_FILE...]: OUTPUT from the policy in FOLDER and those; what is wrong with
# it is said in OUTPUT.log.
compile_policy() {
    local output=$1 folder=$2
    {
        m4 -s "$checks/policy/macros" "$checks/policy/classes" "$folder/attributes" \
            "$checks/policy/types" "$folder"/*.te "${@:3}" <(guide_lines te) "$checks/policy/end"
        guide_lines genfs
    } >"$output.conf"
    checkpolicy -M -c 30 -o "$output" "$output.conf" >"$output.log" 2>&1
}
