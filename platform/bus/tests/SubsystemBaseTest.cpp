#include <memory>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/bus/I2cSubsystem.h"
#include "platform/bus/SpiSubsystem.h"
#include "platform/bus/testing/RecordingI2c.h"

using Calvento::testing::I2cOperation;
using Calvento::testing::RecordingI2c;
using ::testing::ElementsAre;

namespace {

TEST(I2cSubsystem, ForwardsEveryOperationWithItsDeviceId) {
    auto i2c = std::make_shared<RecordingI2c>();
    i2c->readValue = 0xAB;
    I2cSubsystem block(I2cDeviceId{26}, i2c);
    unsigned char const data[2] = {7, 8};
    bool ok = false;

    EXPECT_TRUE(block.i2cProbe());
    EXPECT_TRUE(block.i2cWrite(1, 2));
    EXPECT_EQ(block.i2cRead(3, &ok), 0xABu);
    EXPECT_TRUE(ok);
    EXPECT_TRUE(block.i2cTwoByteWrite(4, 0x1234));
    EXPECT_TRUE(block.i2cMultiByteWrite(5, data, 2));
    EXPECT_EQ(block.i2cTwoByteRead(6), 0xABu);
    I2cDeviceId const id{26};
    EXPECT_THAT(i2c->operations,
                ElementsAre(I2cOperation{I2cOperation::Probe, id, 0, {}},
                            I2cOperation{I2cOperation::Write, id, 1, {2}},
                            I2cOperation{I2cOperation::Read, id, 3, {}},
                            I2cOperation{I2cOperation::TwoByteWrite, id, 4, {0x1234}},
                            I2cOperation{I2cOperation::MultiByteWrite, id, 5, {7, 8}},
                            I2cOperation{I2cOperation::TwoByteRead, id, 6, {}}));

    i2c->writeResult = false;
    EXPECT_FALSE(block.i2cWrite(1, 2));

    // Without an interface writes fail and reads give zero.
    I2cSubsystem detached(I2cDeviceId{21}, nullptr);
    EXPECT_FALSE(detached.i2cProbe());
    EXPECT_FALSE(detached.i2cWrite(1, 2));
    EXPECT_EQ(detached.i2cRead(1, &ok), 0u);
    EXPECT_FALSE(ok);
    ok = true;
    EXPECT_EQ(detached.i2cTwoByteRead(1, &ok), 0u);
    EXPECT_FALSE(ok);
}

class RecordingSpi : public SpiInterface {
public:
    // Operation ('w'rite, 'r'ead, 'x' transceive), device, value, word size.
    using Call = std::tuple<char, SpiDeviceId, unsigned int, SpiWordSizeBits>;
    bool spiWriteWord(SpiDeviceId device, unsigned int value, SpiWordSizeBits size) override {
        calls.push_back({'w', device, value, size});
        return true;
    }
    unsigned int spiReadWord(SpiDeviceId device, SpiWordSizeBits size) override {
        calls.push_back({'r', device, 0, size});
        return 0x55;
    }
    unsigned int spiTransceiveWord(SpiDeviceId device, unsigned int value,
                                   SpiWordSizeBits size) override {
        calls.push_back({'x', device, value, size});
        return 0x66;
    }
    std::vector<Call> calls;
};

TEST(SpiSubsystem, ForwardsEveryTransferWithItsDeviceId) {
    auto spi = std::make_shared<RecordingSpi>();
    SpiSubsystem block(SpiDeviceId::SdiReClockerM23145, spi);
    EXPECT_TRUE(block.spiWriteWord(0x12, SpiWordSizeBits::Bits8));
    EXPECT_EQ(block.spiReadWord(SpiWordSizeBits::Bits16), 0x55u);
    EXPECT_EQ(block.spiTransceiveWord(0x3456, SpiWordSizeBits::Bits24), 0x66u);
    auto const id = SpiDeviceId::SdiReClockerM23145;
    using C = RecordingSpi::Call;
    EXPECT_TRUE((spi->calls == std::vector<C>{{'w', id, 0x12, SpiWordSizeBits::Bits8},
                                              {'r', id, 0, SpiWordSizeBits::Bits16},
                                              {'x', id, 0x3456, SpiWordSizeBits::Bits24}}));

    SpiSubsystem detached(SpiDeviceId::SdiMachXo, nullptr);
    EXPECT_FALSE(detached.spiWriteWord(1, SpiWordSizeBits::Bits8));
    EXPECT_EQ(detached.spiReadWord(SpiWordSizeBits::Bits8), 0u);
}

} // namespace
