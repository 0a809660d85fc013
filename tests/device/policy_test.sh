#!/bin/bash
# The policy compiles with the guide's lines for the board, every name in it is one that exists, the built
# one has the rights that each part of the service needs, and it grants the ioctls that the sources use
# and no more. policy/ stands in for the platform's policy: it declares what ours may name.
# shellcheck source=tests/device/policy.sh
. "$(dirname "$0")/policy.sh"

work=$(mktemp -d)
trap 'rm -rf "$problems" "$work"' EXIT

# compile NAME [TE_FILE...]: the policy work/NAME; without it there is nothing to ask.
compile() {
    compile_policy "$work/$1" "$policy" "${@:2}" || {
        problem "the policy does not compile: $(grep -v '^#line' "$work/$1.log")"
        finish
    }
}

check_compiles() {
    [ -n "$(guide_lines te)" ] || problem "$guide makes nobody a client"
    [ -n "$(guide_lines genfs)" ] || problem "$guide labels no folder of a controller"
    compile policy
    # With the line that boards may need, which is a comment in ours.
    sed -n 's/^# \(allow .*gpu_device.*\)/\1/p' "$policy"/*.te >"$work/gpu.te"
    [ -s "$work/gpu.te" ] || problem "there is no line for the GPU's node"
    compile with_gpu "$work/gpu.te"
}

check_roads() {
    local line
    while read -r line; do
        problem "${line#*: }"
    done < <("$checks/policy/rights.py" "$checks/policy/rights" "$work/policy" 2>&1 || true)
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

check_least
check_ioctls
check_compiles
check_roads
finish
