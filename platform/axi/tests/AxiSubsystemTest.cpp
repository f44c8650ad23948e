#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/axi/AxiSubsystem.h"
#include "platform/axi/testing/AxiRegisterRam.h"

using Calvento::testing::axiRd;
using Calvento::testing::AxiRegisterRam;
using Calvento::testing::axiWr;
using ::testing::ElementsAre;

TEST(AxiSubsystem, ForwardsWithItsOwnSubsystemNumber) {
    auto shared = std::make_shared<AxiRegisterRam>();
    AxiRegisterRam borrowed;
    shared->set(4, 0x22, 0x55);
    borrowed.set(6, 0x22, 0x66);

    AxiSubsystem viaShared(4, shared);
    AxiSubsystem viaRaw(6, &borrowed);
    viaShared.axiWrite(0x21, 0xFFFFFFFF);
    EXPECT_EQ(viaShared.axiRead(0x22), 0x55U);
    viaRaw.axiWrite(0x21, 7);
    EXPECT_EQ(viaRaw.axiRead(0x22), 0x66U);

    EXPECT_THAT(shared->accesses, ElementsAre(axiWr(4, 0x21, 0xFFFFFFFF), axiRd(4, 0x22, 0x55)));
    EXPECT_THAT(borrowed.accesses, ElementsAre(axiWr(6, 0x21, 7), axiRd(6, 0x22, 0x66)));
    EXPECT_EQ(viaShared.getSubsystem(), 4U);
}

TEST(AxiSubsystem, SharesOwnershipUntilDestroyed) {
    auto axi = std::make_shared<AxiRegisterRam>();
    std::weak_ptr<AxiRegisterRam> watch = axi;
    auto block = std::make_unique<AxiSubsystem>(1, axi);
    axi.reset();
    EXPECT_FALSE(watch.expired());
    block.reset();
    EXPECT_TRUE(watch.expired());
}

TEST(AxiSubsystem, WithoutAnInterfaceReadsZero) {
    AxiSubsystem none(0, std::shared_ptr<AxiInterface>());
    none.axiWrite(1, 2);
    EXPECT_EQ(none.axiRead(1), 0U);

    // The interface's own defaults: writes go nowhere, reads give 0.
    struct Bare : AxiInterface {};
    Bare bare;
    AxiSubsystem overBare(3, &bare);
    overBare.axiWrite(1, 2);
    EXPECT_EQ(overBare.axiRead(1), 0U);
}
