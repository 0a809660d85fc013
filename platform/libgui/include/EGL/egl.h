// SPDX-License-Identifier: Apache-2.0
// The EGL types that the buffer queue's interface names; nothing here draws.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

typedef void* EGLDisplay;

#ifdef __cplusplus
}
#endif

#define EGL_NO_DISPLAY ((EGLDisplay)0)
