// SPDX-License-Identifier: Apache-2.0
// Message queues as arguments, which no interface here has: only the descriptor's size matters.
#pragma once

#include <cstddef>

#include <fmq/MQDescriptorBase.h>
