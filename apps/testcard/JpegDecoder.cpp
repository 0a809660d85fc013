// SPDX-License-Identifier: Apache-2.0
#include <csetjmp>
#include <cstdint>
#include <cstdio>

#include <jpeglib.h>

#include "Picture.h"

namespace korvane::testcard {
namespace {

/** More than any picture here has; a damaged file's header may claim a thousand times as many. */
constexpr uint64_t kMostPixels = uint64_t{8192} * 8192;

// Holds everything that must survive the library's longjmp out of an error.
class Decoder {
  public:
    Decoder() {
        mInfo.err = jpeg_std_error(&mErrors.manager);
        mErrors.manager.error_exit = onError;
        mErrors.manager.output_message = onMessage;
    }
    ~Decoder() { jpeg_destroy_decompress(&mInfo); }

    bool run(const uint8_t* data, size_t size, Picture* out) {
        if (setjmp(mErrors.escape) != 0) return false;
        jpeg_create_decompress(&mInfo);
        jpeg_mem_src(&mInfo, data, size);
        jpeg_read_header(&mInfo, TRUE);
        if (uint64_t{mInfo.image_width} * mInfo.image_height > kMostPixels) {
            snprintf(mErrors.text, sizeof mErrors.text, "%u x %u pixels are too many",
                     mInfo.image_width, mInfo.image_height);
            return false;
        }
        mInfo.out_color_space = JCS_YCbCr;
        jpeg_start_decompress(&mInfo);
        out->width = mInfo.output_width;
        out->height = mInfo.output_height;
        out->samples.resize(size_t{3} * out->width * out->height);
        while (mInfo.output_scanline < mInfo.output_height) {
            JSAMPROW line = out->pixel(0, mInfo.output_scanline);
            jpeg_read_scanlines(&mInfo, &line, 1);
        }
        jpeg_finish_decompress(&mInfo);
        return mErrors.manager.num_warnings == 0;
    }

    const char* message() const { return mErrors.text; }

  private:
    struct Errors {
        jpeg_error_mgr manager;
        jmp_buf escape;
        char text[JMSG_LENGTH_MAX];
    };

    static void onMessage(j_common_ptr info) {
        info->err->format_message(info, reinterpret_cast<Errors*>(info->err)->text);
    }

    [[noreturn]] static void onError(j_common_ptr info) {
        onMessage(info);
        longjmp(reinterpret_cast<Errors*>(info->err)->escape, 1);
    }

    jpeg_decompress_struct mInfo = {};
    Errors mErrors = {};
};

}  // namespace

bool decodeJpeg(const uint8_t* data, size_t size, Picture* out, std::string* error) {
    Decoder decoder;
    if (decoder.run(data, size, out)) return true;
    *error = decoder.message();
    return false;
}

}  // namespace korvane::testcard
