#include "platform/axi/AxiSubsystem.h"

#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/axi/testing/AxiRegisterRam.h"

using Calvento::testing::axiRd;
using Calvento::testing::AxiRegisterRam;
using Calvento::testing::axiWr;
using ::testing::ElementsAre;

// The register blocks are tested through shared interfaces; here the
// borrowed-pointer form and the absent interface.
TEST(AxiSubsystem, BorrowedInterfaceAndNoInterface) {
    AxiRegisterRam borrowed;
    borrowed.set(6, 0x22, 0x66);
    AxiSubsystem viaRaw(6, &borrowed);
    viaRaw.axiWrite(0x21, 7);
    EXPECT_EQ(viaRaw.axiRead(0x22), 0x66U);
    EXPECT_THAT(borrowed.accesses, ElementsAre(axiWr(6, 0x21, 7), axiRd(6, 0x22, 0x66)));

    AxiSubsystem none(0, std::shared_ptr<AxiInterface>());
    none.axiWrite(1, 2);
    EXPECT_EQ(none.axiRead(1), 0U);
}
