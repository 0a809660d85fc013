// SPDX-License-Identifier: Apache-2.0
// The EGL sync type that the buffer queue's interface names.
#pragma once

#include <EGL/egl.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef void* EGLSyncKHR;

#ifdef __cplusplus
}
#endif

#define EGL_NO_SYNC_KHR ((EGLSyncKHR)0)
