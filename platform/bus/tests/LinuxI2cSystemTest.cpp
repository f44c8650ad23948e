#include "platform/bus/LinuxI2cSystem.h"

#include <cerrno>
#include <string>
#include <tuple>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

// Address, flags, and the bytes sent (for a read, as many zeros as asked for).
using Message = std::tuple<unsigned int, unsigned int, std::vector<unsigned int>>;

// "/proc/self/fd/<n>" stands in for "/dev/i2c-<n>": bus n is an open
// descriptor of /dev/null; every I2C_RDWR request is recorded instead of sent.
struct Adapter {
    int bus = open("/dev/null", O_RDWR);
    std::vector<std::vector<Message>> requests;
    int result = 1;
    LinuxI2cSystem system{"/proc/self/fd/", [this](int, i2c_rdwr_ioctl_data& request) {
                              std::vector<Message> messages;
                              for (unsigned int i = 0; i < request.nmsgs; ++i) {
                                  i2c_msg& msg = request.msgs[i];
                                  bool const read = (msg.flags & I2C_M_RD) != 0;
                                  std::vector<unsigned int> bytes(msg.len, 0);
                                  for (unsigned int b = 0; b < msg.len; ++b) {
                                      if (read) {
                                          msg.buf[b] = static_cast<unsigned char>(0x5A + b);
                                      } else {
                                          bytes[b] = msg.buf[b];
                                      }
                                  }
                                  messages.emplace_back(msg.addr, msg.flags, bytes);
                              }
                              requests.push_back(messages);
                              return result;
                          }};
    ~Adapter() { close(bus); }
};

TEST(LinuxI2cSystem, EachOperationIsOneTransferWithExactMessages) {
    Adapter adapter;
    LinuxI2cSystem& i2c = adapter.system;
    unsigned int const bus = static_cast<unsigned int>(adapter.bus);
    unsigned char const block[3] = {0xDE, 0xAD, 0x01};
    EXPECT_TRUE(i2c.i2cWrite(bus, 0x1C, 0x12, 0x1AB));
    EXPECT_TRUE(i2c.i2cTwoByteWrite(bus, 0x2B, 0x05, 0xBEEF));
    EXPECT_TRUE(i2c.i2cMultiByteWrite(bus, 0x19, 0x40, block, 3));
    EXPECT_EQ(i2c.i2cRead(bus, 0x1D, 0x33, nullptr, false), 0x5Au);
    EXPECT_EQ(i2c.i2cTwoByteRead(bus, 0x1E, 0x07, nullptr, false), 0x5A5Bu);
    EXPECT_TRUE(i2c.i2cProbe(bus, 0x18));
    // A read continues without a repeated start: I2C_M_RD | I2C_M_NOSTART.
    EXPECT_EQ(adapter.requests,
              (std::vector<std::vector<Message>>{{{0x1C, 0, {0x12, 0xAB}}},
                                                 {{0x2B, 0, {0x05, 0xBE, 0xEF}}},
                                                 {{0x19, 0, {0x40, 0xDE, 0xAD, 0x01}}},
                                                 {{0x1D, 0, {0x33}}, {0x1D, 0x4001, {0}}},
                                                 {{0x1E, 0, {0x07}}, {0x1E, 0x4001, {0, 0}}},
                                                 {{0x18, 0, {0x00}}, {0x18, 0x4001, {0}}}}));
}

TEST(LinuxI2cSystem, FailuresCallTheErrorCallbackAndAMissingNodeSendsNothing) {
    Adapter adapter;
    int calls = 0;
    adapter.system.setErrorCallback([&calls] { ++calls; });
    adapter.result = -EREMOTEIO;
    EXPECT_FALSE(adapter.system.i2cWrite(static_cast<unsigned int>(adapter.bus), 0x2B, 1, 2));
    EXPECT_EQ(calls, 1);
    unsigned char byte = 0;
    LinuxI2cSystem none("/nonexistent/i2c-");
    EXPECT_FALSE(none.i2cWrite(4, 0x10, 1, 2));
    EXPECT_EQ(none.i2cReadBytes(0x10, 0, &byte, 1), -19);
}

} // namespace
