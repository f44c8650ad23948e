#include "platform/registers/Clock1001SynthesizerSi5367cRegisterApi.h"

#include <chrono>
#include <memory>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/bus/testing/RecordingI2c.h"

using Calvento::testing::RecordingI2c;

// The Si5367 set-up of the board's clock plan, as (register, value), on I2C
// device 21; ICAL (136) last.
TEST(Clock1001SynthesizerSi5367c, WritesTheConfigurationInOrderAfterTenMilliseconds) {
    std::vector<std::pair<unsigned int, unsigned int>> const sequence = {
        {0, 0x34},   {1, 0xE4},   {2, 0x72},   {3, 0x15},   {4, 0x12},   {5, 0xED},   {6, 0x3F},
        {7, 0x2A},   {8, 0x00},   {9, 0xC0},   {10, 0x00},  {11, 0x42},  {19, 0x29},  {20, 0x37},
        {21, 0xFF},  {22, 0xDD},  {23, 0x1F},  {24, 0x3F},  {25, 0x40},  {31, 0x00},  {32, 0x00},
        {33, 0x05},  {34, 0x00},  {35, 0x00},  {36, 0x05},  {40, 0xA0},  {41, 0x0F},  {42, 0x9F},
        {43, 0x00},  {44, 0x03},  {45, 0xE8},  {46, 0x00},  {47, 0x03},  {48, 0xE8},  {55, 0x00},
        {131, 0x1F}, {132, 0x02}, {137, 0x00}, {138, 0x0D}, {139, 0xDD}, {142, 0x00}, {143, 0x00},
        {136, 0x40}};
    std::vector<RecordingI2c::Write> expected;
    for (int run = 0; run < 2; ++run) {
        for (auto const& [reg, value] : sequence) {
            expected.emplace_back(21, reg, value);
        }
    }
    auto i2c = std::make_shared<RecordingI2c>();
    i2c->writeResult = false; // a failed write does not stop the sequence
    Clock1001SynthesizerSi5367cRegisterApi clock(i2c);
    auto const start = std::chrono::steady_clock::now();
    clock.setupClockSynthesizer();
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(10));
    clock.setupClockSynthesizer();
    EXPECT_EQ(i2c->writes, expected);
    EXPECT_EQ(i2c->otherOperations, 0);
}
