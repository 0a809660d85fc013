// SPDX-License-Identifier: Apache-2.0
// Waiting on and merging fence descriptors. A fence is any descriptor that polls readable once it
// has signalled: a kernel sync file, or an eventfd or pipe of a producer that draws in software.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Waits until `fd` has signalled. `timeout` is in milliseconds; negative waits for ever.
 * @return 0; or -1 with errno ETIME when the time ran out, EINVAL when `fd` is no valid descriptor
 *         or is in error.
 */
int sync_wait(int fd, int timeout);

/**
 * Makes a fence that signals once both `fd1` and `fd2` have. The caller keeps those and owns the
 * result. Sync files are merged by the kernel. For other descriptors a thread of the process waits
 * for both and then signals the result; an error on one counts as its signal.
 * @return a descriptor; or -1 with errno, EMFILE when too many merges are waiting already.
 */
int sync_merge(const char* name, int fd1, int fd2);

/**
 * CLOCK_MONOTONIC time in nanoseconds of the latest point of a sync file that has signalled
 * without an error.
 * @return false when `fd` is no such sync file.
 */
bool sync_signal_time(int fd, int64_t* outTimeNs);

#ifdef __cplusplus
}
#endif
