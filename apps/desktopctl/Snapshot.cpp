// SPDX-License-Identifier: Apache-2.0
#include "Snapshot.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <jpeglib.h>
#include <png.h>

#include "testcard/Picture.h"

namespace korvane::ctl {
namespace {

using testcard::Frame;
using testcard::Picture;
using testcard::PixelFormat;

struct FileClose {
    void operator()(FILE* file) const { fclose(file); }
};
struct Free {
    void operator()(unsigned char* memory) const { free(memory); }
};

constexpr int kQuality = 95;

bool endsIn(const std::string& path, const char* ending) {
    const size_t length = strlen(ending);
    return path.size() > length && path.compare(path.size() - length, length, ending) == 0;
}

bool isJpegPath(const std::string& path) {
    return endsIn(path, ".jpg") || endsIn(path, ".jpeg");
}

uint8_t clamp(int value) {
    return static_cast<uint8_t>(std::clamp(value, 0, 255));
}

// BT.601, in 1/256: a JPEG's luma has the full range, a video's goes from 16 to 235.
void toRgb(const uint8_t* ycbcr, bool fullRange, uint8_t* rgb) {
    const int y = fullRange ? ycbcr[0] * 256 : (ycbcr[0] - 16) * 298;
    const int cb = ycbcr[1] - 128;
    const int cr = ycbcr[2] - 128;
    const int half = 128;
    rgb[0] = clamp((y + (fullRange ? 359 : 409) * cr + half) / 256);
    rgb[1] = clamp((y - (fullRange ? 88 : 100) * cb - (fullRange ? 183 : 208) * cr + half) / 256);
    rgb[2] = clamp((y + (fullRange ? 454 : 516) * cb + half) / 256);
}

std::vector<uint8_t> toRgb(const Picture& picture, bool fullRange) {
    std::vector<uint8_t> rgb(picture.samples.size());
    for (size_t i = 0; i + 2 < rgb.size(); i += 3) {
        toRgb(&picture.samples[i], fullRange, &rgb[i]);
    }
    return rgb;
}

bool unpack(const Frame& frame, PixelFormat format, uint32_t width, uint32_t height,
            Picture* picture, std::string* error) {
    if (format == PixelFormat::MJPG) {
        return testcard::decodeJpeg(frame.data, frame.size, picture, error);
    }
    if (frame.size < testcard::frameBytes(format, width, height)) {
        *error = "the frame is cut short";
        return false;
    }
    *picture = format == PixelFormat::NV12 ? testcard::pictureFromNv12(frame.data, width, height)
                                           : testcard::pictureFromYuyv(frame.data, width, height);
    return true;
}

bool writeBytes(const std::string& path, const uint8_t* data, size_t size, std::string* error) {
    const std::unique_ptr<FILE, FileClose> file(fopen(path.c_str(), "wbe"));
    if (file != nullptr && fwrite(data, 1, size, file.get()) == size && fflush(file.get()) == 0) {
        return true;
    }
    *error = strerror(errno);
    return false;
}

bool writePng(const std::string& path, const Picture& picture, const std::vector<uint8_t>& rgb,
              std::string* error) {
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    image.width = picture.width;
    image.height = picture.height;
    image.format = PNG_FORMAT_RGB;
    if (png_image_write_to_file(&image, path.c_str(), 0, rgb.data(), 0, nullptr) != 0) return true;
    *error = image.message;
    return false;
}

// The library aborts when it is out of memory, and for nothing else here.
std::vector<uint8_t> encodeJpeg(const Picture& picture, std::vector<uint8_t>& rgb) {
    jpeg_error_mgr errors;
    jpeg_compress_struct info = {};
    info.err = jpeg_std_error(&errors);
    jpeg_create_compress(&info);
    unsigned char* file = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&info, &file, &size);
    info.image_width = picture.width;
    info.image_height = picture.height;
    info.input_components = 3;
    info.in_color_space = JCS_RGB;
    jpeg_set_defaults(&info);
    jpeg_set_quality(&info, kQuality, TRUE);
    jpeg_start_compress(&info, TRUE);
    while (info.next_scanline < info.image_height) {
        JSAMPROW line = &rgb[size_t{3} * picture.width * info.next_scanline];
        jpeg_write_scanlines(&info, &line, 1);
    }
    jpeg_finish_compress(&info);
    jpeg_destroy_compress(&info);
    const std::unique_ptr<unsigned char, Free> owned(file);
    return {file, file + size};
}

}  // namespace

bool isPicturePath(const std::string& path) {
    return endsIn(path, ".png") || isJpegPath(path);
}

bool writePicture(const std::string& path, const Frame& frame, PixelFormat format, uint32_t width,
                  uint32_t height, std::string* error) {
    const bool isJpeg = format == PixelFormat::MJPG;
    if (isJpeg && isJpegPath(path)) return writeBytes(path, frame.data, frame.size, error);
    Picture picture;
    if (!unpack(frame, format, width, height, &picture, error)) return false;
    std::vector<uint8_t> rgb = toRgb(picture, isJpeg);
    if (!isJpegPath(path)) return writePng(path, picture, rgb, error);
    const std::vector<uint8_t> bytes = encodeJpeg(picture, rgb);
    return writeBytes(path, bytes.data(), bytes.size(), error);
}

}  // namespace korvane::ctl
