#include "platform/bus/LinuxI2cSystem.h"

#include <cerrno>
#include <cstdio>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

namespace {

// Address, flags, and what was sent (or, for a read, its length in zeros).
using Message = std::tuple<unsigned int, unsigned int, std::vector<unsigned int>>;

// A directory holding plain files named like the adapters' device nodes.
class FakeDevTree {
public:
    FakeDevTree() {
        char pattern[] = "/tmp/fpt_i2c_XXXXXX";
        dir_ = mkdtemp(pattern);
    }
    ~FakeDevTree() {
        for (auto const& path : files_) {
            std::remove(path.c_str());
        }
        rmdir(dir_.c_str());
    }
    std::string prefix() const { return dir_ + "/i2c-"; }
    void addBus(unsigned int bus) {
        files_.push_back(prefix() + std::to_string(bus));
        std::FILE* file = std::fopen(files_.back().c_str(), "w");
        std::fclose(file);
    }
    void removeBus(unsigned int bus) { std::remove((prefix() + std::to_string(bus)).c_str()); }

private:
    std::string dir_;
    std::vector<std::string> files_;
};

// Records every I2C_RDWR request; a read message is filled from readData and
// recorded with its length as that many zero bytes.
struct TransferRecorder {
    std::vector<std::vector<Message>> requests;
    std::vector<int> descriptors;
    std::vector<unsigned char> readData;
    int result = 1;

    LinuxI2cSystem::Transfer function() {
        return [this](int fd, i2c_rdwr_ioctl_data& request) {
            descriptors.push_back(fd);
            std::vector<Message> messages;
            for (unsigned int i = 0; i < request.nmsgs; ++i) {
                i2c_msg& msg = request.msgs[i];
                Message recorded{msg.addr, msg.flags, {}};
                auto& bytes = std::get<2>(recorded);
                if ((msg.flags & I2C_M_RD) != 0) {
                    bytes.assign(msg.len, 0);
                    for (unsigned int b = 0; b < msg.len && b < readData.size(); ++b) {
                        msg.buf[b] = readData[b];
                    }
                } else {
                    bytes.assign(msg.buf, msg.buf + msg.len);
                }
                messages.push_back(recorded);
            }
            requests.push_back(messages);
            return result;
        };
    }
};

TEST(LinuxI2cSystem, EachOperationIsOneTransferWithExactMessages) {
    struct Case {
        char const* name;
        std::function<void(LinuxI2cSystem&)> operation;
        std::vector<Message> expected;
    };
    unsigned char const block[3] = {0xDE, 0xAD, 0x01};
    std::vector<Case> const cases = {
        {"write",
         [](LinuxI2cSystem& s) { EXPECT_TRUE(s.i2cWrite(9, 0x1C, 0x12, 0x1AB)); },
         {{0x1C, 0, {0x12, 0xAB}}}},
        {"two-byte write, high byte first",
         [](LinuxI2cSystem& s) { EXPECT_TRUE(s.i2cTwoByteWrite(9, 0x2B, 0x05, 0xBEEF)); },
         {{0x2B, 0, {0x05, 0xBE, 0xEF}}}},
        {"multi-byte write",
         [&block](LinuxI2cSystem& s) { EXPECT_TRUE(s.i2cMultiByteWrite(9, 0x19, 0x40, block, 3)); },
         {{0x19, 0, {0x40, 0xDE, 0xAD, 0x01}}}},
        {"read: register then a NOSTART read",
         [](LinuxI2cSystem& s) {
             bool ok = false;
             EXPECT_EQ(s.i2cRead(9, 0x1D, 0x33, &ok, false), 0x5Au);
             EXPECT_TRUE(ok);
         },
         {{0x1D, 0, {0x33}}, {0x1D, 0x4001, {0}}}},
        {"two-byte read",
         [](LinuxI2cSystem& s) {
             bool ok = false;
             EXPECT_EQ(s.i2cTwoByteRead(9, 0x1E, 0x07, &ok, false), 0x5AC3u);
             EXPECT_TRUE(ok);
         },
         {{0x1E, 0, {0x07}}, {0x1E, 0x4001, {0, 0}}}},
        {"probe reads register 0",
         [](LinuxI2cSystem& s) { EXPECT_TRUE(s.i2cProbe(9, 0x18)); },
         {{0x18, 0, {0x00}}, {0x18, 0x4001, {0}}}},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        FakeDevTree tree;
        tree.addBus(9);
        TransferRecorder recorder;
        recorder.readData = {0x5A, 0xC3};
        LinuxI2cSystem system(tree.prefix(), recorder.function());
        c.operation(system);
        ASSERT_EQ(recorder.requests.size(), 1u);
        EXPECT_EQ(recorder.requests[0], c.expected);
        EXPECT_GE(recorder.descriptors[0], 0);
    }
    // The read flags are the kernel's own RD | NOSTART.
    EXPECT_EQ(I2C_M_RD | I2C_M_NOSTART, 0x4001);
}

TEST(LinuxI2cSystem, WithoutADescriptorNothingIsTransferred) {
    FakeDevTree tree; // no bus nodes at all
    TransferRecorder recorder;
    LinuxI2cSystem system(tree.prefix(), recorder.function());
    unsigned char byte = 0;
    EXPECT_EQ(system.i2cWriteBytes(0x10, 0, &byte, 1), -19);
    EXPECT_EQ(system.i2cReadBytes(0x10, 0, &byte, 1), -ENODEV);
    EXPECT_FALSE(system.i2cOpen(4));
    EXPECT_FALSE(system.i2cWrite(4, 0x10, 1, 2));
    bool ok = true;
    EXPECT_EQ(system.i2cRead(4, 0x10, 1, &ok, false), 0u);
    EXPECT_FALSE(ok);
    EXPECT_FALSE(system.i2cProbe(4, 0x10));
    EXPECT_TRUE(recorder.requests.empty());
}

TEST(LinuxI2cSystem, AFailedTransferCallsTheErrorCallbackAndReportsFailure) {
    FakeDevTree tree;
    tree.addBus(10);
    TransferRecorder recorder;
    recorder.result = -EREMOTEIO;
    recorder.readData = {0x77};
    LinuxI2cSystem system(tree.prefix(), recorder.function());
    int calls = 0;
    system.setErrorCallback([&calls] { ++calls; });

    EXPECT_FALSE(system.i2cWrite(10, 0x2B, 1, 2));
    EXPECT_EQ(calls, 1);
    bool ok = true;
    EXPECT_EQ(system.i2cRead(10, 0x2B, 1, &ok, true), 0u);
    EXPECT_FALSE(ok);
    EXPECT_EQ(calls, 2);
    unsigned char byte = 0;
    EXPECT_EQ(system.i2cWriteBytes(0x2B, 3, &byte, 1), -EREMOTEIO);
    EXPECT_EQ(calls, 3);
    EXPECT_FALSE(system.i2cProbe(10, 0x2B));
    EXPECT_EQ(calls, 4);

    recorder.result = 2;
    EXPECT_TRUE(system.i2cWrite(10, 0x2B, 1, 2));
    EXPECT_EQ(calls, 4);
}

TEST(LinuxI2cSystem, KeepsTheOpenBusAndReopensOnlyForAnother) {
    FakeDevTree tree;
    tree.addBus(9);
    tree.addBus(10);
    TransferRecorder recorder;
    LinuxI2cSystem system(tree.prefix(), recorder.function());

    ASSERT_TRUE(system.i2cWrite(9, 0x18, 0, 0));
    tree.removeBus(9);
    // Still the descriptor opened before the node went away.
    EXPECT_TRUE(system.i2cWrite(9, 0x18, 0, 1));
    EXPECT_TRUE(system.i2cWrite(10, 0x2B, 0, 2));
    // Back to bus 9 needs a new open, which now fails.
    EXPECT_FALSE(system.i2cOpen(9));
    EXPECT_FALSE(system.i2cWrite(9, 0x18, 0, 3));
    EXPECT_EQ(recorder.requests.size(), 3u);
}

} // namespace
