#include "platform/registers/Clock1001SynthesizerSi5367cRegisterApi.h"

#include <chrono>
#include <memory>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/bus/testing/RecordingI2c.h"

using Calvento::testing::I2cOperation;
using Calvento::testing::i2cWriteOp;
using Calvento::testing::RecordingI2c;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

namespace {

using Write = std::pair<unsigned int, unsigned int>;

// The Si5367 set-up as the board's clock plan gives it.
std::vector<Write> const kExpected = {
    {0, 0x34},   {1, 0xE4},   {2, 0x72},   {3, 0x15},   {4, 0x12},   {5, 0xED},   {6, 0x3F},
    {7, 0x2A},   {8, 0x00},   {9, 0xC0},   {10, 0x00},  {11, 0x42},  {19, 0x29},  {20, 0x37},
    {21, 0xFF},  {22, 0xDD},  {23, 0x1F},  {24, 0x3F},  {25, 0x40},  {31, 0x00},  {32, 0x00},
    {33, 0x05},  {34, 0x00},  {35, 0x00},  {36, 0x05},  {40, 0xA0},  {41, 0x0F},  {42, 0x9F},
    {43, 0x00},  {44, 0x03},  {45, 0xE8},  {46, 0x00},  {47, 0x03},  {48, 0xE8},  {55, 0x00},
    {131, 0x1F}, {132, 0x02}, {137, 0x00}, {138, 0x0D}, {139, 0xDD}, {142, 0x00}, {143, 0x00},
    {136, 0x40},
};

std::vector<I2cOperation> expectedOperations(int runs) {
    std::vector<I2cOperation> ops;
    for (int run = 0; run < runs; ++run) {
        for (auto const& [reg, value] : kExpected) {
            ops.push_back(i2cWriteOp(I2cDeviceId::ClockSynthesizerSi5367, reg, value));
        }
    }
    return ops;
}

TEST(Clock1001SynthesizerSi5367c, WritesTheConfigurationInOrderAfterTenMilliseconds) {
    auto i2c = std::make_shared<RecordingI2c>();
    Clock1001SynthesizerSi5367cRegisterApi clock(i2c);
    EXPECT_EQ(clock.deviceId(), I2cDeviceId{21});

    auto const start = std::chrono::steady_clock::now();
    clock.setupClockSynthesizer();
    ASSERT_EQ(i2c->operations.size(), 43u);
    EXPECT_THAT(i2c->operations, ElementsAreArray(expectedOperations(1)));
    EXPECT_GE(i2c->times.front() - start, std::chrono::milliseconds(10));
}

TEST(Clock1001SynthesizerSi5367c, RunsToTheEndWhateverTheWritesReturnAndRepeatsAsIs) {
    auto i2c = std::make_shared<RecordingI2c>();
    i2c->writeResult = false;
    Clock1001SynthesizerSi5367cRegisterApi clock(i2c);
    clock.setupClockSynthesizer();
    clock.setupClockSynthesizer();
    EXPECT_THAT(i2c->operations, ElementsAreArray(expectedOperations(2)));
}

// A substitute device sees every write through the virtual i2cWrite.
class CapturingSi5367 : public Clock1001SynthesizerSi5367cRegisterApi {
public:
    using Clock1001SynthesizerSi5367cRegisterApi::Clock1001SynthesizerSi5367cRegisterApi;
    bool i2cWrite(unsigned int reg, unsigned int value) override {
        writes.emplace_back(reg, value);
        return true;
    }
    std::vector<Write> writes;
};

TEST(Clock1001SynthesizerSi5367c, EveryWriteGoesThroughTheVirtualWrite) {
    auto i2c = std::make_shared<RecordingI2c>();
    CapturingSi5367 clock(i2c);
    clock.setupClockSynthesizer();
    EXPECT_EQ(clock.writes, kExpected);
    EXPECT_THAT(i2c->operations, IsEmpty());
}

} // namespace
