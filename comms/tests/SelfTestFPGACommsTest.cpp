#include "comms/SelfTestFPGAComms.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include "logging/testing/RecordingSink.h"
#include "platform/registers/MiscellaneousRegisterApi.h"
#include "platform/sdk/PlatformSdk.h"

using Calvento::testing::ScopedRecordingLogger;

namespace {

constexpr std::size_t kWindowBytes = 0x800000;

Calvento::PlatformPaths pathsUnder(std::string const& root) {
    Calvento::PlatformPaths paths;
    paths.axiDevice = root + "/xdma0_user";
    paths.gpioRoot = root + "/gpio";
    paths.pcieProcFile = root + "/calv_pcie";
    paths.i2cDevicePrefix = root + "/i2c-";
    return paths;
}

// A VyP instrument on disk: an 8 MiB register window standing in for the
// XDMA user device, a sysfs-like GPIO tree with the board straps, and a
// PCIe driver file.
class FakeInstrument {
public:
    explicit FakeInstrument(unsigned int firmwareDesign) {
        char pattern[] = "/tmp/fpt_selftest_XXXXXX";
        root_ = mkdtemp(pattern);
        paths = pathsUnder(root_);

        int const fd = ::open(paths.axiDevice.c_str(), O_RDWR | O_CREAT, 0600);
        EXPECT_GE(fd, 0);
        EXPECT_EQ(::ftruncate(fd, kWindowBytes), 0);
        ::close(fd);
        setWord(0x10, firmwareDesign << 16);
        setWord(0x11, 0x00030004);

        // Baseboard 65 (CV079, a VyL/VyP), front panel 5 (CV084).
        strap({127, 126, 125, 124, 123, 122, 121}, 65);
        strap({502, 501, 500, 499, 498, 497, 496}, 5);
        write(paths.pcieProcFile, "3 1 2 3 4\n");
    }
    ~FakeInstrument() {
        for (auto it = created_.rbegin(); it != created_.rend(); ++it) {
            std::remove(it->c_str());
        }
        std::remove(paths.axiDevice.c_str());
        rmdir(root_.c_str());
    }

    // Words of AXI sub-system 0.
    std::uint32_t word(unsigned int offset) const {
        std::uint32_t value = 0;
        io(&value, sizeof value, offset * 4, false);
        return value;
    }
    void setWord(unsigned int offset, std::uint32_t value) {
        io(&value, sizeof value, offset * 4, true);
    }
    std::vector<char> window() const {
        std::vector<char> bytes(kWindowBytes);
        io(bytes.data(), bytes.size(), 0, false);
        return bytes;
    }

    Calvento::PlatformPaths paths;

private:
    void io(void* buffer, std::size_t size, off_t at, bool write) const {
        int const fd = ::open(paths.axiDevice.c_str(), write ? O_RDWR : O_RDONLY);
        EXPECT_EQ(write ? ::pwrite(fd, buffer, size, at) : ::pread(fd, buffer, size, at),
                  static_cast<ssize_t>(size));
        ::close(fd);
    }
    void strap(std::vector<unsigned int> const& lines, unsigned int id) {
        for (std::size_t i = 0; i < lines.size(); ++i) {
            std::string const dir = paths.gpioRoot + std::to_string(lines[i]);
            ::mkdir(dir.c_str(), 0700);
            unsigned int const bit = (id >> (lines.size() - 1 - i)) & 1;
            write(dir + "/value", bit ? "1\n" : "0\n");
            created_.push_back(dir);
        }
    }
    void write(std::string const& path, char const* text) {
        std::FILE* file = std::fopen(path.c_str(), "w");
        ASSERT_NE(file, nullptr);
        std::fputs(text, file);
        std::fclose(file);
        created_.insert(created_.begin(), path);
    }

    std::string root_;
    std::vector<std::string> created_;
};

TEST(SelfTestFPGAComms, PitchIndexToFrequency) {
    struct Case {
        int index;
        int frequency;
    };
    for (Case const c : {Case{0, 256}, Case{1, 271}, Case{2, 287}, Case{11, 483}, Case{12, 512},
                         Case{24, 1024}, Case{36, 2048}, Case{47, 3866}, Case{48, 4096}}) {
        EXPECT_EQ(SelfTestFPGAComms::pitchToFrequency(c.index), c.frequency) << c.index;
    }
}

TEST(SelfTestFPGAComms, SelfTestImageIsValidAndDrivesTheToneRegisters) {
    ScopedRecordingLogger log;
    FakeInstrument instrument(11);
    SelfTestFPGAComms comms(instrument.paths);
    ASSERT_TRUE(comms.valid);
    ASSERT_NE(comms.misc, nullptr);
    ASSERT_TRUE(comms.platformSdk);
    EXPECT_EQ(comms.misc, comms.platformSdk->getSubsystem(SubsystemType::MISCELLANEOUS, 0).get());
    // The registry of a self-test image: the self-test blocks share
    // sub-system 9, the production-only jitter block is absent.
    auto const axiSubsystemOf = [&comms](int type) {
        auto const block = std::dynamic_pointer_cast<AxiSubsystem>(
            comms.platformSdk->getSubsystem(static_cast<SubsystemType>(type), 0));
        return block ? static_cast<int>(block->getSubsystem()) : -1;
    };
    EXPECT_EQ(axiSubsystemOf(28), 0);
    EXPECT_EQ(axiSubsystemOf(0), 9);
    EXPECT_EQ(axiSubsystemOf(5), 9);
    EXPECT_EQ(axiSubsystemOf(11), 9);
    EXPECT_EQ(axiSubsystemOf(21), -1);

    // The Si5367 set-up went to the FPGA's I2C engine, bus 1, address 0x68,
    // and ended with the calibration start (register 136 <- 0x40). The
    // window file never reports the engine done, so every write is logged
    // as failed, which also counts them.
    EXPECT_EQ(instrument.word(0x2B), 0x01D18840u);
    auto const lines = log.lines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "i2cWrite Failed. Bus 1 Device 104"), 43);

    struct Case {
        int pitchIndex;
        int storedPitch;
        std::uint32_t high;
        std::uint32_t period;
    };
    for (Case const c : {Case{1, 1, 373615, 747231}, Case{60, 48, 24718, 49437},
                         Case{-5, 0, 395507, 791014}, Case{12, 12, 197753, 395506}}) {
        SCOPED_TRACE(c.pitchIndex);
        comms.setPitch(c.pitchIndex);
        EXPECT_EQ(comms.pitch, c.storedPitch);
        EXPECT_EQ(instrument.word(0x08), c.high);
        EXPECT_EQ(instrument.word(0x09), c.period);
    }

    comms.setVolume(50);
    EXPECT_EQ(comms.volume, 50);
    EXPECT_EQ(instrument.word(0x07), 2097150u);
    // Passed on unclamped: the block wraps it within 22 bits.
    comms.setVolume(101);
    EXPECT_EQ(comms.volume, 101);
    EXPECT_EQ(instrument.word(0x07), 41939u);
}

TEST(SelfTestFPGAComms, AnyOtherImageLeavesItInert) {
    for (unsigned int design : {10u, 2u, 1u}) {
        SCOPED_TRACE(design);
        FakeInstrument instrument(design);
        SelfTestFPGAComms comms(instrument.paths);
        EXPECT_FALSE(comms.valid);
        ASSERT_TRUE(comms.platformSdk);
        // Design 2 is the older self-test image, which has the blocks.
        for (int type : {0, 5, 11}) {
            EXPECT_EQ(static_cast<bool>(
                          comms.platformSdk->getSubsystem(static_cast<SubsystemType>(type), 0)),
                      design == 2)
                << type;
        }
        auto const before = instrument.window();
        comms.setVolume(50);
        comms.setPitch(12);
        EXPECT_EQ(comms.volume, 0);
        EXPECT_EQ(comms.pitch, 0);
        EXPECT_TRUE(instrument.window() == before) << "a register was written";
    }
}

TEST(SelfTestFPGAComms, WithoutTheInstrumentItIsInvalidAndDoesNotThrow) {
    SelfTestFPGAComms comms(pathsUnder("/nonexistent"));
    EXPECT_FALSE(comms.valid);
    comms.setVolume(50);
    comms.setPitch(3);
    EXPECT_EQ(comms.volume, 0);
    EXPECT_EQ(comms.pitch, 0);
}

} // namespace
