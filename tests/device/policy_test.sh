#!/bin/bash
# The policy compiles, every name in it is one that exists, and it grants the ioctls that the sources
# use, no more. The platform's policy is stood in for by policy/, which declares what ours may name.
# shellcheck source=tests/device/lib.sh
. "$(dirname "$0")/lib.sh"

policy=$service/sepolicy
work=$(mktemp -d)
trap 'rm -rf "$problems" "$work"' EXIT

check_compiles() {
    m4 -s "$checks/policy/macros" "$checks/policy/classes" "$policy/attributes" \
        "$checks/policy/types" "$policy"/*.te "$checks/policy/end" "$policy/genfs_contexts" \
        >"$work/policy.conf"
    checkpolicy -M -c 30 -o "$work/policy" "$work/policy.conf" >"$work/log" 2>&1 ||
        problem "the policy does not compile: $(grep -v '^#line' "$work/log")"
}

granted() {
    sed -n 's/^ *\(0x[0-9a-f]*\) # \([A-Z_]*\)$/\1 \2/p' "$policy"/*.te
}

used() {
    grep -rhoE --include='*.cpp' --include='*.h' '\b(VIDIOC|UVCIOC)_[A-Z_]+\b' hardware | sort -u
}

check_ioctls() {
    same "ioctls (policy, sources)" "$(granted | awk '{print $2}')" "$(used)"
    {
        printf '#include <%s>\n' linux/videodev2.h linux/usb/g_uvc.h
        granted | sed 's/\(.*\) \(.*\)/static_assert((\2 \& 0xffff) == \1, "");/'
    } >"$work/ioctls.cpp"
    c++ -fsyntax-only "$work/ioctls.cpp" || problem "an ioctl has another number"
}

# Nothing may be granted that a HAL must not have, whatever the reason.
check_least() {
    local found
    found=$(grep -nE '^[^#]*\b(capability|net_admin|sys_admin|dac_override|execute_no_trans|ptrace|permissive|unconfined)\b' \
        "$policy"/*.te || true)
    [ -z "$found" ] || problem "the policy grants too much: $found"
    # A blank line parts the rules into groups; each group opens with its reason.
    awk -v RS= '$0 !~ /^#/ {print FILENAME ": no reason for: " $0; bad = 1}' "$policy"/*.te |
        while read -r line; do problem "$line"; done
}

check_compiles
check_ioctls
check_least
finish
