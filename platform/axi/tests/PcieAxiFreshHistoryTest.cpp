#include <gtest/gtest.h>

#include "platform/axi/PcieAxi.h"
#include "platform/axi/testing/RegisterWindowFile.h"

// Runs alone in its process: nothing may have touched the class-wide history.
TEST(PcieAxiFreshHistory, NoneUntilTheFirstAccessThenOnlyWhatHappened) {
    EXPECT_EQ(PcieAxi::printAccessesToString(), "Last few AXI accesses (newest first):\nNONE\n");
    Calvento::testing::RegisterWindowFile window;
    PcieAxi axi(window.paths());
    axi.axiRead(0, 0x10);
    axi.axiWrite(9, 0x20, 5);
    EXPECT_EQ(PcieAxi::printAccessesToString(), "Last few AXI accesses (newest first):\n"
                                                "AXI W> Subsystem: 0x9 Register: 0x20\n"
                                                "AXI R> Subsystem: 0x0 Register: 0x10\n");
}
