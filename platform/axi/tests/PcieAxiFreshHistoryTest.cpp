#include <gtest/gtest.h>

#include "platform/axi/PcieAxi.h"
#include "platform/axi/testing/RegisterWindowFile.h"

// Runs alone in its process: nothing may have touched the class-wide history.
TEST(PcieAxiFreshHistory, NoneUntilTheFirstAccessThenOnlyWhatHappened) {
    ASSERT_EQ(PcieAxi::accessHistoryPos, 0U);
    Calvento::PlatformPaths missing;
    missing.axiDevice = "/nonexistent/xdma0_user";
    testing::internal::CaptureStderr();
    PcieAxi absent(missing);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(absent.axiRead(0, 0x10), 0xFFFFFFFFU);
    EXPECT_EQ(PcieAxi::printAccessesToString(), "Last few AXI accesses (newest first):\nNONE\n");

    Calvento::testing::RegisterWindowFile window;
    PcieAxi axi(window.paths());
    axi.axiRead(0, 0x10);
    axi.axiWrite(9, 0x20, 5);
    axi.axiRead(2, 0x1234);
    EXPECT_EQ(PcieAxi::printAccessesToString(), "Last few AXI accesses (newest first):\n"
                                                "AXI R> Subsystem: 0x2 Register: 0x1234\n"
                                                "AXI W> Subsystem: 0x9 Register: 0x20\n"
                                                "AXI R> Subsystem: 0x0 Register: 0x10\n");
}
