// SPDX-License-Identifier: Apache-2.0
// What the webcam function is to be: formats, sizes, rates, names.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace korvane::gadget {

/** A picture format of the function; only one of yuyv and nv12 can be the uncompressed one. */
enum class Format { YUYV, NV12, MJPEG };

/** Its name, as written in settings. */
const char* nameOf(Format format);

/** Bits allowed for a pixel; a compressed format gets a byte, as in the service. */
unsigned bitsPerPixel(Format format);

/** One frame size of a format. */
struct Frame {
    Format format;
    unsigned width;               // pixels
    unsigned height;              // pixels
    std::vector<unsigned> rates;  // frames a second; the first one is the default

    unsigned pixels() const { return width * height; }
    /** Bytes of its largest frame. */
    unsigned bytes() const {
        return pixels() / 8 * bitsPerPixel(format) + pixels() % 8 * bitsPerPixel(format) / 8;
    }
    /** As written in settings: "yuyv:640x480@30,15". */
    std::string text() const;
};

/**
 * The settings of the function, read from a file of lines "KEY = VALUE" and from the command line.
 * Each set...() returns an empty text or what is wrong with the value, in one line.
 */
class GadgetSettings {
  public:
    static constexpr char kFile[] = "/etc/korvane/gadget.conf";

    /**
     * Reads a file, in which '#' begins a comment line. Only `format` may appear more than once.
     *
     * @return an empty text, or one line: FILE:LINE: what is wrong
     */
    std::string readFile(const std::string& path);

    /** Adds a size, "FORMAT:WxH@RATE,...". */
    std::string addFormat(const std::string& text);
    std::string setMaxPacket(const std::string& text);
    /** The device's names, as shown by hosts. */
    std::string setText(std::string* field, const std::string& text);

    /**
     * Sorts the sizes into the order in which the service counts them, or those of the default list
     * if there are none.
     *
     * @return an empty text, or what is wrong with the sizes as a whole
     */
    std::string finish();

    /** Uses NV12 instead of YUYV in the default list. */
    void preferNv12() { mNv12 = true; }
    /** Drops the sizes from the file, in favour of those of the command line. */
    void clearFormats() { frames.clear(); }

    bool has(Format format) const;

    std::vector<Frame> frames;  // after finish(), by ascending number of pixels
    unsigned maxPacket = 3072;  // bytes per 125 us
    bool serialPort = false;    // another function before the camera
    std::string controller;     // empty: the only one
    std::string manufacturer = "Korvane";
    std::string product = "Korvane Webcam";
    std::string name = "Korvane Webcam";  // of the function
    std::string serial;                   // empty: one unique to this machine

  private:
    std::string set(const std::string& key, const std::string& value);

    bool mNv12 = false;
};

/** A serial number that is unique to this machine and never changes: from /etc/machine-id. */
std::string machineSerial();

}  // namespace korvane::gadget
