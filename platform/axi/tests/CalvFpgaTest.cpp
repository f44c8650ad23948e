#include "platform/axi/CalvFpga.h"

#include <cerrno>
#include <string>

#include <gtest/gtest.h>
#include <sys/mman.h>

TEST(CalvFpga, NullPointersAreRejected) {
    unsigned int word = 7;
    unsigned int value = 0;
    EXPECT_EQ(calv_write_fpga_reg(nullptr, 0, 1), -EINVAL);
    EXPECT_EQ(calv_read_fpga_reg(nullptr, 0, &value), -EINVAL);
    EXPECT_EQ(calv_read_fpga_reg(&word, 0, nullptr), -EINVAL);
    calv_close_fpga(-1, reinterpret_cast<unsigned int*>(0x1000)); // must not unmap
}

TEST(CalvFpga, OpenFailuresAreReportedOnStandardError) {
    unsigned int* base = nullptr;
    testing::internal::CaptureStderr();
    EXPECT_LT(calv_open_fpga(&base, "/nonexistent/xdma0_user"), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "CALVLIB: Error opening device file /nonexistent/xdma0_user: No such file or "
              "directory");
    EXPECT_EQ(base, nullptr);

    // /dev/null opens read/write but cannot be mapped.
    testing::internal::CaptureStderr();
    EXPECT_EQ(calv_open_fpga(&base, "/dev/null"), -1);
    std::string const err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err.rfind("CALVLIB: failed to map memory: ", 0), 0U) << err;
    EXPECT_EQ(base, static_cast<unsigned int*>(MAP_FAILED));
}
