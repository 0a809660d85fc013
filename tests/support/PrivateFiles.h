// SPDX-License-Identifier: Apache-2.0
// A file system private to the test, so that the service's fixed paths lead into the test.
#pragma once

#include <string>

namespace korvane::test {

/**
 * While this exists, /config, /sys/class and /dev belong to the test: they hold what the test puts
 * there, and /dev also the usual nodes such as null, urandom and shm. Everything else is the
 * machine's, which sees nothing of all this.
 *
 * The first one moves the calling thread into a mount namespace with a new root, for good: threads
 * already running stay outside, those started later come along. Each one starts empty. One at a
 * time.
 *
 * It needs root or unprivileged user namespaces. Without them available() is false, and the test
 * must say so and skip itself:
 *
 *     if (!mFiles.available()) GTEST_SKIP() << mFiles.whyNot();
 */
class PrivateFiles {
  public:
    PrivateFiles();
    ~PrivateFiles();
    PrivateFiles(const PrivateFiles&) = delete;
    PrivateFiles& operator=(const PrivateFiles&) = delete;

    bool available() const { return mWhyNot.empty(); }
    /** What is missing; empty if available. */
    const std::string& whyNot() const { return mWhyNot; }

    // Paths are absolute and in one of the private folders; missing parent folders are created.
    // Failures throw std::runtime_error or std::filesystem::filesystem_error.

    /** Creates or replaces a file. Any bytes, including NUL. */
    void write(const std::string& path, const std::string& content);
    void makeDirectory(const std::string& path);
    /** Removes a file or a folder with everything in it. */
    void remove(const std::string& path);

    /**
     * Creates a video4linux device as the system shows it: a plain file /dev/NAME and the driver's
     * text in /sys/class/video4linux/NAME/name.
     */
    void addVideoDevice(const std::string& name, const std::string& text);

  private:
    void clear();

    std::string mWhyNot;
};

}  // namespace korvane::test
