// SPDX-License-Identifier: Apache-2.0
#include "JpegRowEncoder.h"

#include <cstdlib>

namespace korvane::testcard {

JpegRowEncoder::JpegRowEncoder(uint32_t width, int quality) : mWidth(width), mQuality(quality) {
    mPlanes.width = (width + 15) / 16 * 16;
    mPlanes.y.resize(16 * mPlanes.width);
    mPlanes.cb.resize(8 * mPlanes.width / 2);
    mPlanes.cr.resize(8 * mPlanes.width / 2);
    mInfo.err = jpeg_std_error(&mErrors.manager);
    mErrors.manager.error_exit = onError;
}

JpegRowEncoder::~JpegRowEncoder() {
    jpeg_destroy_compress(&mInfo);
}

void JpegRowEncoder::File::reset() {
    free(data);
    data = nullptr;
    size = 0;
}

// The library expects this not to return; it keeps no state that a fresh start doesn't reset.
void JpegRowEncoder::onError(j_common_ptr info) {
    longjmp(reinterpret_cast<Errors*>(info->err)->escape, 1);
}

bool JpegRowEncoder::encode(uint32_t count, const std::function<void(uint32_t, RowPlanes&)>& fill,
                            JpegRows* out) {
    if (!compress(count, fill)) {
        jpeg_destroy_compress(&mInfo);
        return false;
    }
    return out->split(mFile.data, mFile.size) && out->rows.size() == count;
}

bool JpegRowEncoder::compress(uint32_t count,
                              const std::function<void(uint32_t, RowPlanes&)>& fill) {
    if (setjmp(mErrors.escape) != 0) return false;
    if (mInfo.mem == nullptr) jpeg_create_compress(&mInfo);
    mFile.reset();
    jpeg_mem_dest(&mInfo, &mFile.data, &mFile.size);
    mInfo.image_width = mWidth;
    mInfo.image_height = count * 16;
    mInfo.input_components = 3;
    mInfo.in_color_space = JCS_YCbCr;
    jpeg_set_defaults(&mInfo);  // 4:2:0, the standard tables
    jpeg_set_quality(&mInfo, mQuality, TRUE);
    mInfo.raw_data_in = TRUE;
    mInfo.restart_in_rows = 1;
    jpeg_start_compress(&mInfo, TRUE);
    for (uint32_t row = 0; row < count; ++row) {
        fill(row, mPlanes);
        writeRow();
    }
    jpeg_finish_compress(&mInfo);
    return true;
}

void JpegRowEncoder::writeRow() {
    JSAMPROW y[16], cb[8], cr[8];
    for (uint32_t line = 0; line < 16; ++line) y[line] = mPlanes.luma(line);
    for (uint32_t line = 0; line < 8; ++line) {
        cb[line] = mPlanes.blue(line);
        cr[line] = mPlanes.red(line);
    }
    JSAMPARRAY planes[] = {y, cb, cr};
    jpeg_write_raw_data(&mInfo, planes, 16);
}

}  // namespace korvane::testcard
