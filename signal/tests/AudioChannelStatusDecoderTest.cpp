#include "signal/AudioChannelStatusDecoder.h"

#include <array>
#include <cstdint>
#include <utility>
#include <vector>

#include <QChar>
#include <QString>
#include <QStringList>

#include <gtest/gtest.h>

namespace {

using Decoder = AudioChannelStatusDecoder;
using ChannelStatus = AudioProcessingRegisterApi::ChannelStatus;
using Getter = QString (*)(uint32_t const*);
using Bytes = std::vector<std::pair<int, int>>; // (byte number, value)

// A block of zero bytes but the listed ones, packed as the capture packs
// them: byte 4i in bits 31..24 of word i, byte 4i+1 in bits 23..16, ...
ChannelStatus block(Bytes const& bytes, uint8_t valid = 1, uint32_t crcError = 0) {
    ChannelStatus cs;
    cs.valid = valid;
    cs.crcError = crcError;
    for (auto const& [n, value] : bytes) {
        cs.csWords.at(static_cast<std::size_t>(n / 4)) |= uint32_t(value) << (24 - 8 * (n % 4));
    }
    return cs;
}

QString text(Getter getter, Bytes const& bytes) {
    return getter(block(bytes).csWords.data());
}

// Byte n set to base | i << shift decodes to expected[i], for each base: set
// bits outside the code must not count.
void expectCodes(Getter getter, int n, int shift, std::vector<QString> const& expected,
                 std::vector<int> const& bases = {0}) {
    for (int base : bases) {
        for (std::size_t i = 0; i < expected.size(); ++i) {
            int const value = base | static_cast<int>(i) << shift;
            EXPECT_EQ(text(getter, {{n, value}}), expected[i]) << "byte " << n << " = " << value;
        }
    }
}

QString const kFiftyFifteen = QStringLiteral("50/15 ") + QChar(0x00B5) + QStringLiteral("s");
QString const kFourNuls(4, QChar(0));

TEST(AudioChannelStatusDecoder, OneBitFieldsOfByteZero) {
    expectCodes(&Decoder::getDataTypeFromCSBytes, 0, 1, {"PCM", "Non-PCM"}, {0x00, 0xFD});
    expectCodes(&Decoder::getSourceLockFromCSBytes, 0, 5, {"Locked", "Unlocked"}, {0x00, 0xDF});
    expectCodes(&Decoder::getChannelModeFromCSBytesConsumer, 0, 6, {"Mode 0", "?", "?", "?"},
                {0x00, 0x3F});
}

TEST(AudioChannelStatusDecoder, CodeTables) {
    expectCodes(&Decoder::getPreemphasisFromCSBytesProfessional, 0, 2,
                {"Unknown", "None", "?", kFiftyFifteen, "?", "?", "?", "ITU-T J.17"}, {0x00, 0xE3});
    expectCodes(&Decoder::getPreemphasisFromCSBytesConsumer, 0, 3,
                {"None", kFiftyFifteen, "?", "?", "?", "?", "?", "?"}, {0x00, 0xC7});
    expectCodes(&Decoder::getChannelModeFromCSBytesProfessional, 1, 0,
                {"Unknown", "1 Ch 2xFs", "Stereo", "?", "1 Channel", "?", "?", "?", "2 Channel",
                 "1 Ch 2xFs", "?", "?", "Pri-Sec", "?", "1 Ch 2xFs", "Multichannel"},
                {0x00, 0xF0});
    expectCodes(&Decoder::getAlignmentLevelFromCSBytes, 2, 6, {"Unknown", "-18.06", "-20", "?"},
                {0x00, 0x3F});
    expectCodes(
        &Decoder::getFrequencyFromCSBytesConsumer, 3, 0,
        {"44.1", "?", "48", "32", "?", "?", "?", "?", "?", "?", "?", "?", "?", "?", "?", "?"},
        {0x00, 0xF0});
}

TEST(AudioChannelStatusDecoder, ProfessionalFrequencyWithAndWithoutPullDown) {
    Getter const get = &Decoder::getFrequencyFromCSBytesProfessional;
    expectCodes(get, 0, 6, {"Unspecified", "44.1", "48", "32"}, {0x00, 0x3F});
    // Byte 4 bits 2..6 when byte 0 says nothing; bit 7 pulls down by 1000/1001.
    expectCodes(get, 4, 3, {"Unspecified", "24", "96", "192"}, {0x00, 0x03});
    expectCodes(get, 4, 3, {"Unspecified", "22.05", "88.2", "176.4"}, {0x40});
    expectCodes(get, 4, 3, {"Unspecified", "23.976", "95.9041", "191.808"}, {0x80});
    expectCodes(get, 4, 3, {"Unspecified", "22.028", "88.1119", "176.224"}, {0xC0});
    expectCodes(get, 4, 3, std::vector<QString>(16, "Unspecified"), {0x04}); // bit 2 counts
    EXPECT_EQ(text(get, {{0, 0x80}, {4, 0x80}}), "47.952");
    EXPECT_EQ(text(get, {{0, 0x40}, {4, 0x80}}), "44.0559");
    EXPECT_EQ(text(get, {{0, 0xC0}, {4, 0x80}}), "31.968");
    EXPECT_EQ(text(get, {{0, 0x80}, {4, 0x10}}), "48"); // byte 0 wins
}

TEST(AudioChannelStatusDecoder, WordLengthByCodeAndMaximum) {
    Getter const pro = &Decoder::getWordLengthFromCSBytesProfessional;
    // Auxiliary bits 4: maximum 24; 2: maximum 20; the alignment bits do not count.
    expectCodes(pro, 2, 3,
                {"Default (24)/24", "20/24", "22/24", "?", "23/24", "24/24", "21/24", "?"},
                {0x04, 0xC4});
    expectCodes(pro, 2, 3,
                {"Default (20)/20", "16/20", "18/20", "?", "19/20", "20/20", "17/20", "?"}, {0x02});
    expectCodes(pro, 2, 3, std::vector<QString>(8, "Default (20)"), {0x00});
    expectCodes(pro, 2, 3, std::vector<QString>(8, "User"), {0x06});
    expectCodes(pro, 2, 0, {"Default (20)", "?", "Default (20)/20", "?", "Default (24)/24", "?"});
    // Consumer: bit 0 set gives maximum 24; the original rate nibble does not count.
    expectCodes(&Decoder::getWordLengthFromCSBytesConsumer, 4, 0,
                {"Default (20)/20", "Default (24)/24", "16/20", "20/24", "18/20", "22/24", "?", "?",
                 "19/20", "23/24", "20/20", "24/24", "17/20", "21/24", "?", "?"},
                {0x00, 0xF0});
}

TEST(AudioChannelStatusDecoder, ProfessionalBytesSixToTwentyTwo) {
    Bytes const origin = {{5, '<'}, {6, 'C'}, {7, 'V'}, {8, '0'}, {9, '8'}, {10, '>'}};
    EXPECT_EQ(text(&Decoder::getOriginFromCSBytes, origin), "CV08");
    EXPECT_EQ(text(&Decoder::getDestinationFromCSBytes, {{10, '%'}, {11, '1'}, {12, 0xE9}}),
              QStringLiteral("%1") + QChar(0xE9) + QChar(0));
    EXPECT_EQ(text(&Decoder::getDestinationFromCSBytes, {}), kFourNuls);
    // Received order, byte 14 first, although the standard sends it last.
    EXPECT_EQ(text(&Decoder::getSampleAddrFromCSBytes, {{14, 0x12}, {15, 0x34}, {17, 0x0D}}),
              "1234000d");
    EXPECT_EQ(text(&Decoder::getSamplesSinceMidnightFromCSBytes,
                   {{18, 0x0A}, {19, 0x1B}, {21, 0xFF}, {22, 0xEE}}),
              "0A:1B:00:FF");
    expectCodes(&Decoder::getReliabilityFromCSBytes, 22, 4,
                {"All Ok", "Ch,Sa,Ti - Ok", "Si,Sa,Ti - Ok", "Sa,Ti - Ok", "Si,Ch,Ti - Ok",
                 "Ch,Ti - Ok", "Si,Ti - Ok", "Ti - Ok", "Si,Ch,Sa - Ok", "Ch,Sa - Ok", "Si,Sa - Ok",
                 "Sa - Ok", "Si,Ch - Ok", "Ch - Ok", "Si - Ok", "All Bad"},
                {0x00, 0x0F});
}

TEST(AudioChannelStatusDecoder, StatusFromValidAndCrcFlags) {
    auto status = [](int valid, uint32_t crcError, bool crcPresent) {
        return Decoder::getStatus(block({}, static_cast<uint8_t>(valid), crcError), crcPresent);
    };
    EXPECT_EQ(status(1, 0, true), "CRCC Ok");
    EXPECT_EQ(status(2, 0, true), "Invalid");
    EXPECT_EQ(status(0, 0x80000000U, true), "CRCC Bad");
    EXPECT_EQ(status(1, 1, false), "No CRC");
    EXPECT_EQ(status(2, 0, false), "Invalid");
}

// Every field, joined by "|", NULs shown as "~".
TEST(AudioChannelStatusDecoder, WholeBlocksChosenByTheProfessionalFlag) {
    auto fields = [](ChannelStatus const& cs) {
        Decoder::DecodedCs const d = Decoder::decodeAll(cs);
        Decoder::DecodedCs::Char0 const& c = d.char0;
        QStringList all = {d.status, c.mode, c.dataType, c.preemphasis, c.sourceLock};
        all << c.frequency << c.channelMode << c.wordLength << c.alignmentLevel << d.origin;
        all << d.destination << d.sampleAddress << d.samplesSinceMidnight << d.reliability;
        return all.join('|').replace(QChar(0), '~');
    };
    EXPECT_EQ(fields(block({{1, 0x01}})),
              "No CRC|Consumer|PCM|None|N/A|44.1|Mode 0|Default (20)/20|N/A|||||");
    EXPECT_EQ(fields(block({{0, 0x01}})),
              "CRCC Ok|Pro|PCM|Unknown|Locked|Unspecified|Unknown|"
              "Default (20)|Unknown|~~~~|~~~~|00000000|00:00:00:00|All Ok");
    Bytes const everyField = {{0, 0x85}, {1, 0x08}, {2, 0xAC}, {4, 0x80},
                              {6, 'C'},  {13, 'T'}, {22, 0xA0}};
    EXPECT_EQ(fields(block(everyField, 1, 1)),
              "CRCC Bad|Pro|PCM|None|Locked|47.952|2 Channel|24/24|"
              "-20|C~~~|~~~T|00000000|00:00:00:00|Si,Sa - Ok");
}

} // namespace
