// SPDX-License-Identifier: Apache-2.0
#include "MappedFile.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <android-base/unique_fd.h>

namespace korvane::testcard {

MappedFile::~MappedFile() {
    unmap();
}

std::string MappedFile::map(const std::string& path) {
    unmap();
    const android::base::unique_fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status = {};
    if (file.get() < 0 || fstat(file.get(), &status) != 0) return strerror(errno);
    if (!S_ISREG(status.st_mode)) return "it is not a file";
    if (status.st_size == 0) return "it is empty";
    void* const data = mmap(nullptr, status.st_size, PROT_READ, MAP_PRIVATE, file.get(), 0);
    if (data == MAP_FAILED) return strerror(errno);
    mData = static_cast<uint8_t*>(data);
    mSize = status.st_size;
    return "";
}

void MappedFile::unmap() {
    if (mData != nullptr) munmap(mData, mSize);
    mData = nullptr;
    mSize = 0;
}

}  // namespace korvane::testcard
