# shellcheck shell=bash disable=SC2034,SC2154
# SPDX-License-Identifier: Apache-2.0
# What is the amd64 machine's own; sourced by vm/prepare and vm/run.

qemu=qemu-system-x86_64
packages=()  # lists of Debian packages on top of scripts/packages
apt=()       # what stands before apt's commands
cross=       # the prefix of the compiler's tools
kbuild_flags=()
console=ttyS0

# The folder whose files the machine has: all of the host's.
root_of_machine() {
    echo /
}

# number FILE OFFSET SIZE: the unsigned number that stands there.
number() {
    od -An -v -t "u$3" -j "$2" -N "$3" "$1" | tr -d ' '
}

# The kernel as the ELF file inside the image: unpacking it takes emulated processors two seconds.
# Where it is stands in the image's boot header; the last four bytes are its unpacked size.
unpack_kernel() {
    local start length
    start=$((($(number "$1" 0x1f1 1) + 1) * 512 + $(number "$1" 0x248 4)))
    length=$(($(number "$1" 0x24c 4) - 4))
    tail -c +$((start + 1)) "$1" | head -c "$length" >payload || true
    case $(number payload 0 4) in
    1484404733) xz -dc <payload ;;
    4247762216) zstd -dc <payload ;;
    *) fail "$1 is packed neither with xz nor with zstd" ;;
    esac >kernel
    [ "$(head -c 4 kernel | tail -c 3)" = ELF ] || fail "$1 holds no ELF file"
}

make_tools() {
    logged "building tsc_khz" gcc-12 -O2 -o machine/tsc_khz "$here/tsc_khz.c"
}

# A machine of the least hardware, started without firmware; its clock is the processor's, which
# costs nothing to read. Without "erms" the kernel copies by words, not by bytes (REP MOVSB), each of
# which is a step to the emulator: ten times faster, and a stream is mostly copying. AVX2 helps there.
set_hardware() {
    local khz=1000000  # where instructions are the clock, it counts their nanoseconds
    [ "$CLOCK" = instructions ] || khz=$("$machine/tsc_khz")
    hardware=(-machine microvm,acpi=on -cpu max,-erms,-smap,-smep,-la57)
    kernel_options+=" tsc=reliable tsc_early_khz=$khz"
}
