// SPDX-License-Identifier: Apache-2.0
#include "gadget/GadgetSettings.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "gadget/GadgetCheck.h"

namespace korvane::gadget {
namespace {

class GadgetSettingsTest : public testing::Test {
  protected:
    GadgetSettings mSettings;
    char mPath[32] = "/tmp/gadget.conf.XXXXXX";

    ~GadgetSettingsTest() override { unlink(mPath); }

    /** Reads a file with this content; the result is without the file's name. */
    std::string readFile(const std::string& content) {
        const int fd = mkstemp(mPath);
        EXPECT_EQ(static_cast<ssize_t>(content.size()), write(fd, content.data(), content.size()));
        close(fd);
        const std::string wrong = mSettings.readFile(mPath);
        const std::string begin = std::string(mPath) + ":";
        if (wrong.empty()) return "";
        EXPECT_EQ(begin, wrong.substr(0, begin.size()));
        return wrong.substr(std::min(begin.size(), wrong.size()));
    }

    std::vector<std::string> sizes() {
        std::vector<std::string> texts;
        for (const Frame& frame : mSettings.frames) texts.push_back(frame.text());
        return texts;
    }
};

TEST_F(GadgetSettingsTest, HasDefaultsThatHighSpeedCarries) {
    EXPECT_EQ("", readFile("# nothing\n\n  \n"));
    EXPECT_EQ("", mSettings.finish());
    EXPECT_EQ((std::vector<std::string>{"yuyv:640x480@30,15", "mjpeg:640x480@30",
                                        "yuyv:1280x720@10,5", "mjpeg:1280x720@30",
                                        "mjpeg:1920x1080@30"}),
              sizes());
    EXPECT_EQ(3072u, mSettings.maxPacket);
    EXPECT_EQ("", mSettings.controller);
    EXPECT_TRUE(checkBus(mSettings).empty());
    mSettings.clearFormats();
    mSettings.preferNv12();
    EXPECT_EQ("", mSettings.finish());
    EXPECT_EQ("nv12:640x480@30,15", sizes()[0]);
}

TEST_F(GadgetSettingsTest, TakesEveryKeyOfAFile) {
    EXPECT_EQ("", readFile("format = nv12:320x240@60\n"
                           "format=mjpeg:160x120@15,5\r\n"
                           "maxpacket = 1024\nmanufacturer = Me\nproduct = My = Camera\n"
                           "name = Desk\nserial = 7\ncontroller = fe980000.usb\n"));
    EXPECT_EQ("", mSettings.finish());
    EXPECT_EQ((std::vector<std::string>{"mjpeg:160x120@15,5", "nv12:320x240@60"}), sizes());
    EXPECT_EQ(1024u, mSettings.maxPacket);
    EXPECT_EQ("Me", mSettings.manufacturer);
    EXPECT_EQ("My = Camera", mSettings.product);
    EXPECT_EQ("Desk", mSettings.name);
    EXPECT_EQ("7", mSettings.serial);
    EXPECT_EQ("fe980000.usb", mSettings.controller);
}

TEST_F(GadgetSettingsTest, SaysWhichLineIsWrongAndWhatIsAccepted) {
    const struct {
        const char* line;
        const char* error;
    } kCases[] = {
            {"format", "2: 'format' is not KEY = VALUE"},
            {"colour = red",
             "2: unknown key 'colour' (known: format, maxpacket, manufacturer, "
             "product, name, serial, controller)"},
            {"format = mjpeg", "2: 'mjpeg' is not of the kind FORMAT:WxH@RATE,..."},
            {"format = mjpeg:@30", "2: 'mjpeg:@30' is not of the kind FORMAT:WxH@RATE,..."},
            {"format = mjpeg:640x480@",
             "2: 'mjpeg:640x480@' is not of the kind FORMAT:WxH@RATE,..."},
            {"format = mjpeg@30:640x480",
             "2: 'mjpeg@30:640x480' is not of the kind FORMAT:WxH@RATE,..."},
            {"format = h264:640x480@30", "2: unknown format 'h264' (known: yuyv nv12 mjpeg)"},
            {"format = mjpeg:640@30", "2: size '640' is not WIDTHxHEIGHT, each from 1 to 16384"},
            {"format = mjpeg:16385x1@30",
             "2: size '16385x1' is not WIDTHxHEIGHT, each from 1 to 16384"},
            {"format = yuyv:641x480@30", "2: size '641x480': yuyv needs an even width"},
            {"format = nv12:640x481@30", "2: size '640x481': nv12 needs an even height"},
            {"format = mjpeg:640x480@0", "2: rate '0' is not from 1 to 999 frames a second"},
            {"format = mjpeg:640x480@30,", "2: rate '' is not from 1 to 999 frames a second"},
            {"format = mjpeg:640x480@1000", "2: rate '1000' is not from 1 to 999 frames a second"},
            {"format = mjpeg:640x480@fast",
             "2: rates 'fast' are not whole numbers with commas "
             "between"},
            {"format = mjpeg:640x480@30,15,30", "2: rate '30' is there twice"},
            {"maxpacket = 1500", "2: maxpacket is '1500', but 1 to 1024, 2048 or 3072 is needed"},
            {"maxpacket = 0", "2: maxpacket is '0', but 1 to 1024, 2048 or 3072 is needed"},
            {"manufacturer =", "2: manufacturer is '', but 1 to 126 ASCII characters are needed"},
            {"product = a\tb", "2: product is 'a\tb', but 1 to 126 ASCII characters are needed"},
            {"controller =", "2: controller is '', but 1 to 126 ASCII characters are needed"},
            {"serial =", "2: serial is '', but 1 to 126 ASCII characters are needed"},
            {"name = B\xc3\xbcro",
             "2: name is 'B\xc3\xbcro', but 1 to 126 ASCII characters are "
             "needed"},
    };
    for (const auto& wrong : kCases) {
        mSettings = GadgetSettings();
        snprintf(mPath, sizeof(mPath), "/tmp/gadget.conf.XXXXXX");
        EXPECT_EQ(wrong.error, readFile("# settings\n" + std::string(wrong.line) + "\n"));
        unlink(mPath);
    }
}

TEST_F(GadgetSettingsTest, RefusesWhatOnlySeveralLinesGetWrong) {
    EXPECT_EQ("2: serial is there twice", readFile("serial = 1\nserial = 2\n"));
    mSettings = GadgetSettings();
    EXPECT_EQ("", mSettings.addFormat("yuyv:640x480@30"));
    EXPECT_EQ("yuyv and nv12 exclude each other: the function has one uncompressed format",
              mSettings.addFormat("nv12:320x240@30"));
    mSettings = GadgetSettings();
    EXPECT_EQ("", mSettings.addFormat("mjpeg:640x480@30"));
    EXPECT_EQ("", mSettings.addFormat("mjpeg:480x640@15"));
    EXPECT_EQ("mjpeg:480x640@15 has as many pixels as another size of it, so they have no order",
              mSettings.finish());
}

// As many rates as there are numbers.
std::string rates(int count) {
    std::string text = "1";
    for (int rate = 2; rate <= count; ++rate) text += "," + std::to_string(rate);
    return text;
}

TEST_F(GadgetSettingsTest, RefusesWhatADescriptionForHostsHasNoRoomFor) {
    EXPECT_EQ("58 rates are more than a size can have: 57",
              mSettings.addFormat("mjpeg:640x480@" + rates(58)));
    for (int i = 0; i < 126; ++i) {
        ASSERT_EQ("", mSettings.addFormat("mjpeg:" + std::to_string(100 + i) + "x100@30"));
    }
    EXPECT_EQ("", mSettings.finish());
    EXPECT_EQ("", mSettings.addFormat("mjpeg:640x480@30"));
    EXPECT_EQ(
            "too many sizes and rates: they take 3810 bytes of the device's description, in which "
            "3800 are theirs (26 for a size and 4 for each of its rates)",
            mSettings.finish());
    mSettings = GadgetSettings();
    EXPECT_EQ("", mSettings.addFormat("mjpeg:640x480@" + rates(57)));
    EXPECT_EQ("", mSettings.finish());
}

TEST_F(GadgetSettingsTest, NamesAFileThatCannotBeRead) {
    EXPECT_EQ("/nowhere/gadget.conf: No such file or directory",
              mSettings.readFile("/nowhere/gadget.conf"));
    EXPECT_EQ("/tmp: Is a directory", mSettings.readFile("/tmp"));
}

TEST(GadgetBusTest, SaysWhichSizeTheBusCannotCarryAndHowFastItCould) {
    GadgetSettings settings;
    EXPECT_EQ("", settings.addFormat("yuyv:1280x720@30,10"));
    EXPECT_EQ("", settings.addFormat("yuyv:640x480@30"));
    EXPECT_EQ("", settings.addFormat("mjpeg:3840x2160@30"));
    EXPECT_EQ("", settings.finish());
    EXPECT_EQ((std::vector<std::string>{
                      "yuyv:1280x720@30,10 needs 55.3 MB/s at 30 frames a second, but packets of "
                      "3072 bytes carry 24.6 MB/s: at most 13",
                      "mjpeg:3840x2160@30 needs 62.2 MB/s at 30 frames a second, but packets of "
                      "3072 bytes carry 24.6 MB/s: at most 11"}),
              checkBus(settings));
    settings.maxPacket = 512;
    EXPECT_EQ(3u, checkBus(settings).size());
}

TEST(GadgetBusTest, RoundsAFramesBytesDownToWholeOnes) {
    EXPECT_EQ(614400u, (Frame{Format::YUYV, 640, 480, {30}}.bytes()));
    EXPECT_EQ(460800u, (Frame{Format::NV12, 640, 480, {30}}.bytes()));
    EXPECT_EQ(9u, (Frame{Format::MJPEG, 3, 3, {30}}.bytes()));
    EXPECT_EQ(16384u * 16384u * 2u, (Frame{Format::YUYV, 16384, 16384, {1}}.bytes()));
}

TEST(MachineSerialTest, IsTheSameEachTime) {
    EXPECT_EQ(16u, machineSerial().size());
    EXPECT_EQ(machineSerial(), machineSerial());
}

}  // namespace
}  // namespace korvane::gadget
