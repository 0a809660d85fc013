# shellcheck shell=bash disable=SC2034,SC2154
# SPDX-License-Identifier: Apache-2.0
# What is the arm64 machine's own; sourced by vm/prepare and vm/run.

qemu=qemu-system-aarch64
packages=("$here/../scripts/packages-arm64")
apt=("$here/../scripts/arm64-apt")
cross=aarch64-linux-gnu-
kbuild_flags=(ARCH=arm64 CROSS_COMPILE=$cross)
console=ttyAMA0

root_of_machine() {
    "$here/../scripts/arm64-root"
}

# Debian's image is the kernel as it is.
unpack_kernel() {
    [ "$(tail -c +57 "$1" | head -c 4)" = ARMd ] || fail "$1 is no arm64 kernel, or a packed one"
    cp "$1" kernel
}

make_tools() {
    :
}

# A processor of the phone's generation, but without pointer authentication, whose ciphers are slow
# to emulate.
set_hardware() {
    hardware=(-machine virt,gic-version=3 -cpu cortex-a76)
}
