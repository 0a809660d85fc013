// SPDX-License-Identifier: Apache-2.0
// Encodes rows of sixteen lines as JPEG, each independently.
#pragma once

#include <csetjmp>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <vector>

#include <jpeglib.h>

#include "JpegRows.h"

namespace korvane::testcard {

/** The samples of one row of a scan, wide enough for whole blocks; lines are consecutive. */
struct RowPlanes {
    uint32_t width = 0;           // of luma, a multiple of 16; chroma has half as many
    std::vector<uint8_t> y;       // 16 lines
    std::vector<uint8_t> cb, cr;  // 8 lines each

    uint8_t* luma(uint32_t line) { return &y[size_t{line} * width]; }
    uint8_t* blue(uint32_t line) { return &cb[size_t{line} * width / 2]; }
    uint8_t* red(uint32_t line) { return &cr[size_t{line} * width / 2]; }
};

/**
 * An encoder for pictures of one width: baseline, 4:2:0, the standard tables, a restart marker
 * after every row. Rows from different calls have the same tables. Not thread-safe.
 */
class JpegRowEncoder {
  public:
    /** `width` in pixels; `quality` from 1 to 100. */
    JpegRowEncoder(uint32_t width, int quality);
    ~JpegRowEncoder();
    JpegRowEncoder(const JpegRowEncoder&) = delete;
    JpegRowEncoder& operator=(const JpegRowEncoder&) = delete;

    /** Encodes `count` rows, each filled by `fill`. False if the library refuses (no memory). */
    bool encode(uint32_t count, const std::function<void(uint32_t row, RowPlanes& planes)>& fill,
                JpegRows* out);

  private:
    struct Errors {
        jpeg_error_mgr manager;
        jmp_buf escape;
    };

    /** A file that the library writes, in memory allocated with malloc. */
    struct File {
        File() = default;
        ~File() { reset(); }
        File(const File&) = delete;
        File& operator=(const File&) = delete;
        void reset();

        unsigned char* data = nullptr;
        unsigned long size = 0;
    };

    [[noreturn]] static void onError(j_common_ptr info);
    bool compress(uint32_t count, const std::function<void(uint32_t, RowPlanes&)>& fill);
    void writeRow();

    jpeg_compress_struct mInfo = {};
    Errors mErrors = {};
    uint32_t mWidth;
    int mQuality;
    RowPlanes mPlanes;
    File mFile;
};

}  // namespace korvane::testcard
