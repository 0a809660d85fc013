#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# The kernel's gadget node answers as the scripted one does, by the same test program.
. "$(dirname "$0")/lib.sh"

need "the function comes up" gadget up
need "has a node" wait_gadget_node 10
KORVANE_GADGET_NODE=$(gadget_node)
KORVANE_HOST="bash $ROOT/tests/vm/gadget_node_host.sh"
export KORVANE_GADGET_NODE KORVANE_HOST KORVANE_BUILD SHARE
check "the kernel's node passes every test" \
    "$KORVANE_BUILD/tests/GadgetNodeTest" --gtest_color=no --gtest_output="xml:$SHARE/GadgetNodeTest.xml"
check "runs them" grep -q 'result="completed"' "$SHARE/GadgetNodeTest.xml"
check_not "skips none" grep -q 'result="skipped"' "$SHARE/GadgetNodeTest.xml"
finish
