// SPDX-License-Identifier: Apache-2.0
// Numbers that producers of a buffer queue use: query keys, API kinds, scaling and transforms.
#pragma once

#include <stdint.h>

#include <nativebase/nativebase.h>
#include <system/graphics.h>

/** What IGraphicBufferProducer::query() answers; it refuses keys that are missing here. */
enum {
    NATIVE_WINDOW_WIDTH = 0,
    NATIVE_WINDOW_HEIGHT = 1,
    NATIVE_WINDOW_FORMAT = 2,
    /** Buffers that a producer must leave undequeued at any time. */
    NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS = 3,
    NATIVE_WINDOW_QUEUES_TO_WINDOW_COMPOSER = 4,
    NATIVE_WINDOW_CONCRETE_TYPE = 5,
    NATIVE_WINDOW_DEFAULT_WIDTH = 6,
    NATIVE_WINDOW_DEFAULT_HEIGHT = 7,
    NATIVE_WINDOW_TRANSFORM_HINT = 8,
    NATIVE_WINDOW_CONSUMER_RUNNING_BEHIND = 9,
    NATIVE_WINDOW_CONSUMER_USAGE_BITS = 10,
    NATIVE_WINDOW_STICKY_TRANSFORM = 11,
    NATIVE_WINDOW_DEFAULT_DATASPACE = 12,
    NATIVE_WINDOW_BUFFER_AGE = 13,
    NATIVE_WINDOW_LAYER_COUNT = 16,
    NATIVE_WINDOW_CONSUMER_IS_PROTECTED = 19,
};

/** Kinds of producer, for connect() and disconnect(). */
enum {
    NATIVE_WINDOW_API_EGL = 1,
    NATIVE_WINDOW_API_CPU = 2,
    NATIVE_WINDOW_API_MEDIA = 3,
    NATIVE_WINDOW_API_CAMERA = 4,
};

enum {
    NATIVE_WINDOW_SCALING_MODE_FREEZE = 0,
    NATIVE_WINDOW_SCALING_MODE_SCALE_TO_WINDOW = 1,
    NATIVE_WINDOW_SCALING_MODE_SCALE_CROP = 2,
    NATIVE_WINDOW_SCALING_MODE_NO_SCALE_CROP = 3,
};

enum {
    NATIVE_WINDOW_TRANSFORM_FLIP_H = HAL_TRANSFORM_FLIP_H,
    NATIVE_WINDOW_TRANSFORM_FLIP_V = HAL_TRANSFORM_FLIP_V,
    NATIVE_WINDOW_TRANSFORM_ROT_90 = HAL_TRANSFORM_ROT_90,
    NATIVE_WINDOW_TRANSFORM_ROT_180 = HAL_TRANSFORM_ROT_180,
    NATIVE_WINDOW_TRANSFORM_ROT_270 = HAL_TRANSFORM_ROT_270,
    NATIVE_WINDOW_TRANSFORM_INVERSE_DISPLAY = 0x08,
};

/** A time stamp that stands for "the time of queueing"; only a client's surface replaces it. */
static const int64_t NATIVE_WINDOW_TIMESTAMP_AUTO = INT64_MIN;
