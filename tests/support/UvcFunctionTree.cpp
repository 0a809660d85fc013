// SPDX-License-Identifier: Apache-2.0
#include "support/UvcFunctionTree.h"

namespace korvane::test {

UvcFunctionTree::UvcFunctionTree(PrivateFiles& files) : mFiles(files) {
    if (!mFiles.available()) return;
    set("streaming_interval", "1\n");
    set("streaming_maxburst", "0\n");
    set("streaming_maxpacket", "3072\n");
    set("control/header/h/bcdUVC", "272\n");
    mFiles.makeDirectory(formatPath("uncompressed"));
    mFiles.makeDirectory(formatPath("mjpeg"));
}

std::string UvcFunctionTree::guid(const std::string& code) {
    static constexpr char kRest[] = "\x00\x00\x10\x00\x80\x00\x00\xaa\x00\x38\x9b\x71";
    return code + std::string(kRest, sizeof(kRest) - 1);
}

void UvcFunctionTree::set(const std::string& attribute, const std::string& value) {
    mFiles.write(path() + "/" + attribute, value);
}

void UvcFunctionTree::remove(const std::string& attribute) {
    mFiles.remove(path() + "/" + attribute);
}

void UvcFunctionTree::addUncompressed(const std::string& code) {
    const std::string format = std::string("streaming/") + kUncompressed;
    set(format + "/bFormatIndex", "1\n");
    set(format + "/bBitsPerPixel", code == "NV12" ? "12\n" : "16\n");
    set(format + "/guidFormat", guid(code));
}

void UvcFunctionTree::addMjpeg() {
    set(std::string("streaming/") + kMjpeg + "/bFormatIndex", "2\n");
}

void UvcFunctionTree::addFrame(const std::string& format, const std::string& name, uint32_t width,
                               uint32_t height, const std::vector<uint32_t>& intervals) {
    std::string lines;
    for (uint32_t interval : intervals) lines += std::to_string(interval) + "\n";
    const std::string frame = "streaming/" + format + "/" + name;
    set(frame + "/bFrameIndex", "1\n");
    set(frame + "/wWidth", std::to_string(width) + "\n");
    set(frame + "/wHeight", std::to_string(height) + "\n");
    set(frame + "/dwFrameInterval", lines);
}

}  // namespace korvane::test
