#include <cerrno>
#include <string>

#include <gtest/gtest.h>
#include <sys/mman.h>

#include "platform/axi/CalvFpga.h"
#include "platform/axi/testing/RegisterWindowFile.h"

using Calvento::testing::RegisterWindowFile;

TEST(CalvFpga, NullPointersAreRejected) {
    unsigned int word = 7;
    unsigned int value = 0;
    EXPECT_EQ(calv_write_fpga_reg(nullptr, 0, 1), -EINVAL);
    EXPECT_EQ(calv_read_fpga_reg(nullptr, 0, &value), -EINVAL);
    EXPECT_EQ(calv_read_fpga_reg(&word, 0, nullptr), -EINVAL);
    EXPECT_EQ(value, 0U);
    EXPECT_EQ(calv_read_fpga_reg(&word, 0, &value), 0);
    EXPECT_EQ(value, 7U);
    // Closing "nothing" must not touch the pointer.
    calv_close_fpga(-1, reinterpret_cast<unsigned int*>(0x1000));
}

TEST(CalvFpga, MapsTheWholeWindowSharedWithTheDevice) {
    RegisterWindowFile window;
    window.setWord(0x7FFFF, 0xCAFEF00D); // the very last word of 8 MiB
    unsigned int* base = nullptr;
    int const fd = calv_open_fpga(&base, window.path().c_str());
    ASSERT_GE(fd, 0);
    ASSERT_NE(base, nullptr);

    unsigned int value = 0;
    EXPECT_EQ(calv_read_fpga_reg(base, 0x1FFFFF, &value), 0);
    EXPECT_EQ(value, 0U);
    EXPECT_EQ(calv_read_fpga_reg(base, 0x7FFFF, &value), 0);
    EXPECT_EQ(value, 0xCAFEF00DU);
    EXPECT_EQ(calv_write_fpga_reg(base, 0x1FFFFF, 0x12345678), 0);
    EXPECT_EQ(calv_write_fpga_reg(base, 0x30005, 0xA5A5A5A5), 0);
    calv_close_fpga(fd, base);

    // MAP_SHARED: the stores reached the "device".
    EXPECT_EQ(window.word(0x1FFFFF), 0x12345678U);
    EXPECT_EQ(window.word(0x30005), 0xA5A5A5A5U);
    EXPECT_EQ(window.word(0x30004), 0U);
}

TEST(CalvFpga, MissingDeviceReportsWithoutNewline) {
    unsigned int* base = nullptr;
    testing::internal::CaptureStderr();
    int const fd = calv_open_fpga(&base, "/nonexistent/xdma0_user");
    std::string const err = testing::internal::GetCapturedStderr();
    EXPECT_LT(fd, 0);
    EXPECT_EQ(base, nullptr);
    EXPECT_EQ(err, "CALVLIB: Error opening device file /nonexistent/xdma0_user: No such file or "
                   "directory");
}

TEST(CalvFpga, FailedMappingHandsBackMapFailed) {
    // /dev/null opens read/write but cannot be mapped.
    unsigned int* base = nullptr;
    testing::internal::CaptureStderr();
    int const fd = calv_open_fpga(&base, "/dev/null");
    std::string const err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(fd, -1);
    EXPECT_EQ(base, static_cast<unsigned int*>(MAP_FAILED));
    EXPECT_EQ(err.rfind("CALVLIB: failed to map memory: ", 0), 0U) << err;
}
