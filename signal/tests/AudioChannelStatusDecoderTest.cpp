#include "signal/AudioChannelStatusDecoder.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <QChar>
#include <QString>

#include <gtest/gtest.h>

// Readable failure output for QString, with control and non-ASCII characters
// escaped so that NULs and the micro sign show up.
void PrintTo(QString const& text, std::ostream* os) {
    *os << '"';
    for (QChar const c : text) {
        ushort const u = c.unicode();
        if (u >= 0x20 && u < 0x7F) {
            *os << static_cast<char>(u);
        } else {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04X", static_cast<unsigned>(u));
            *os << escaped;
        }
    }
    *os << '"';
}

namespace {

using Decoder = AudioChannelStatusDecoder;
using ChannelStatus = AudioProcessingRegisterApi::ChannelStatus;
using Getter = QString (*)(uint32_t const*);
using ByteSettings = std::vector<std::pair<int, uint8_t>>;
using Words = std::array<uint32_t, AudioProcessingRegisterApi::kCsWordCount>;

// A block of zero bytes except for the listed (byte number, value) pairs. The
// capture packs byte 4i into bits 31..24 of word i, byte 4i+1 into bits 23..16
// and so on.
Words wordsWith(ByteSettings const& settings) {
    Words words{};
    for (auto const& [n, value] : settings) {
        words.at(static_cast<std::size_t>(n / 4)) |= uint32_t{value} << (24 - 8 * (n % 4));
    }
    return words;
}

ChannelStatus statusWith(ByteSettings const& settings, uint8_t valid = 1, uint32_t crcError = 0) {
    ChannelStatus cs;
    cs.valid = valid;
    cs.crcError = crcError;
    cs.csWords = wordsWith(settings);
    return cs;
}

std::string describe(ByteSettings const& settings) {
    std::string text = "bytes:";
    for (auto const& [n, value] : settings) {
        char item[24];
        std::snprintf(item, sizeof item, " [%d]=0x%02X", n, static_cast<unsigned>(value));
        text += item;
    }
    return text;
}

struct FieldCase {
    ByteSettings bytes;
    QString expected;
};

void expectTable(Getter getter, std::vector<FieldCase> const& cases) {
    for (auto const& c : cases) {
        SCOPED_TRACE(describe(c.bytes));
        Words const words = wordsWith(c.bytes);
        EXPECT_EQ(getter(words.data()), c.expected);
    }
}

QString const kFiftyFifteen = QStringLiteral("50/15 ") + QChar(0x00B5) + QStringLiteral("s");

QString latin1Chars(std::initializer_list<int> codes) {
    QString text;
    for (int code : codes) {
        text += QChar(code);
    }
    return text;
}

std::vector<QString> char0Fields(Decoder::DecodedCs::Char0 const& c) {
    return {c.mode,      c.dataType,    c.preemphasis, c.sourceLock,
            c.frequency, c.channelMode, c.wordLength,  c.alignmentLevel};
}

std::vector<QString> trailingFields(Decoder::DecodedCs const& d) {
    return {d.origin, d.destination, d.sampleAddress, d.samplesSinceMidnight, d.reliability};
}

// Byte n set to each listed value gives the same text.
void expectByte(Getter getter, int n, QString const& expected, std::vector<int> const& values) {
    for (int value : values) {
        expectTable(getter, {{{{n, static_cast<uint8_t>(value)}}, expected}});
    }
}

// Byte n set to base | i << shift gives expected[i], for each base: bits
// outside the code set in a base must not matter.
void expectCodes(Getter getter, int n, int shift, std::vector<QString> const& expected,
                 std::vector<int> const& bases = {0}) {
    for (int base : bases) {
        for (std::size_t i = 0; i < expected.size(); ++i) {
            expectByte(getter, n, expected[i], {base | static_cast<int>(i) << shift});
        }
    }
}

TEST(AudioChannelStatusDecoder, DataTypeIsByteZeroBitOne) {
    Getter const get = &Decoder::getDataTypeFromCSBytes;
    expectByte(get, 0, "PCM", {0x00, 0xFD});
    expectByte(get, 0, "Non-PCM", {0x02, 0xFF});
    // Same bit in the other bytes of word 0 must not count.
    expectTable(get, {{{{1, 0x02}, {2, 0x02}, {3, 0x02}}, "PCM"}});
}

TEST(AudioChannelStatusDecoder, PreemphasisCodes) {
    Getter get = &Decoder::getPreemphasisFromCSBytesProfessional;
    expectCodes(get, 0, 2, {"Unknown", "None", "?", kFiftyFifteen, "?", "?", "?", "ITU-T J.17"},
                {0x00, 0xE3});
    expectByte(get, 3, "Unknown", {0x1C});
    get = &Decoder::getPreemphasisFromCSBytesConsumer;
    expectCodes(get, 0, 3, {"None", kFiftyFifteen, "?", "?", "?", "?", "?", "?"}, {0x00, 0xC7});
    expectByte(get, 3, "None", {0x08});
}

TEST(AudioChannelStatusDecoder, SourceLockIsByteZeroBitFive) {
    Getter const get = &Decoder::getSourceLockFromCSBytes;
    expectByte(get, 0, "Locked", {0x00, 0xDF});
    expectByte(get, 0, "Unlocked", {0x20, 0xFF});
    expectByte(get, 1, "Locked", {0x20});
}

TEST(AudioChannelStatusDecoder, ProfessionalFrequencyWithAndWithoutPullDown) {
    Getter const get = &Decoder::getFrequencyFromCSBytesProfessional;
    // Basic rates in byte 0 bits 6..7.
    expectCodes(get, 0, 6, {"Unspecified", "44.1", "48", "32"});
    expectByte(get, 0, "48", {0xBF});
    // Extended rates in byte 4 bits 3..6 when byte 0 says nothing; bits 0..1
    // are not part of the code.
    expectCodes(get, 4, 3, {"Unspecified", "24", "96", "192"});
    expectCodes(get, 4, 3, {"Unspecified", "22.05", "88.2", "176.4"}, {0x40});
    expectCodes(get, 4, 3, {"Unspecified", "23.976", "95.9041", "191.808"}, {0x80});
    expectCodes(get, 4, 3, {"Unspecified", "22.028", "88.1119", "176.224"}, {0xC0});
    expectByte(get, 4, "24", {0x0B});
    expectByte(get, 4, "Unspecified", {0x80, 0x04, 0x0C, 0x8C, 0x20, 0x40, 0x7C, 0xFF});
    expectTable(get, {{{{0, 0x80}, {4, 0x80}}, "47.952"},
                      {{{0, 0x40}, {4, 0x80}}, "44.0559"},
                      {{{0, 0xC0}, {4, 0x80}}, "31.968"},
                      // Byte 0 wins over an extended code in byte 4.
                      {{{0, 0x80}, {4, 0x10}}, "48"},
                      {{{0, 0x3F}, {4, 0x93}}, "95.9041"},
                      {{{3, 0x80}, {5, 0x10}}, "Unspecified"}});
}

TEST(AudioChannelStatusDecoder, ConsumerFrequencyCodes) {
    Getter const get = &Decoder::getFrequencyFromCSBytesConsumer;
    // Clock accuracy in the high nibble is not part of the code.
    expectCodes(
        get, 3, 0,
        {"44.1", "?", "48", "32", "?", "?", "?", "?", "?", "?", "?", "?", "?", "?", "?", "?"},
        {0x00, 0xF0});
    expectByte(get, 3, "32", {0x33});
    expectTable(get, {{{{0, 0x02}, {4, 0x02}}, "44.1"}});
}

TEST(AudioChannelStatusDecoder, ChannelModeCodes) {
    Getter get = &Decoder::getChannelModeFromCSBytesProfessional;
    expectCodes(get, 1, 0,
                {"Unknown", "1 Ch 2xFs", "Stereo", "?", "1 Channel", "?", "?", "?", "2 Channel",
                 "1 Ch 2xFs", "?", "?", "Pri-Sec", "?", "1 Ch 2xFs", "Multichannel"},
                {0x00, 0xF0}); // user bits in the high nibble are not part of the code
    expectByte(get, 1, "1 Ch 2xFs", {0x71});
    expectTable(get, {{{{0, 0x08}, {2, 0x08}}, "Unknown"}});
    get = &Decoder::getChannelModeFromCSBytesConsumer;
    expectByte(get, 0, "Mode 0", {0x00, 0x3F});
    expectByte(get, 0, "?", {0x40, 0x80, 0xC0});
    expectByte(get, 1, "Mode 0", {0xC0});
}

TEST(AudioChannelStatusDecoder, WordLengthByCodeAndMaximum) {
    Getter get = &Decoder::getWordLengthFromCSBytesProfessional;
    // Auxiliary bits code 4: maximum 24; code 2: maximum 20. The alignment
    // level bits (0xC0, 0x80) are not part of either code.
    expectCodes(get, 2, 3,
                {"Default (24)/24", "20/24", "22/24", "?", "23/24", "24/24", "21/24", "?"},
                {0x04, 0xC4});
    expectCodes(get, 2, 3,
                {"Default (20)/20", "16/20", "18/20", "?", "19/20", "20/20", "17/20", "?"},
                {0x02, 0x82});
    // Auxiliary use not indicated: the length code does not matter.
    expectByte(get, 2, "Default (20)", {0x00, 0x20, 0x18, 0x38});
    expectByte(get, 2, "User", {0x06, 0x26, 0x1E});
    expectByte(get, 2, "?", {0x01, 0x03, 0x05, 0x07, 0x2D}); // reserved auxiliary codes
    expectTable(get, {{{{1, 0x2C}, {3, 0x2C}}, "Default (20)"}});

    get = &Decoder::getWordLengthFromCSBytesConsumer;
    // Bit 0 set: maximum 24, clear: maximum 20.
    expectCodes(get, 4, 0,
                {"Default (20)/20", "Default (24)/24", "16/20", "20/24", "18/20", "22/24", "?", "?",
                 "19/20", "23/24", "20/20", "24/24", "17/20", "21/24", "?", "?"},
                {0x00, 0xF0}); // the original sampling frequency in the high nibble is ignored
    expectTable(get, {{{{3, 0x0B}, {5, 0x0B}}, "Default (20)/20"}});
}

TEST(AudioChannelStatusDecoder, AlignmentLevelCodes) {
    Getter const get = &Decoder::getAlignmentLevelFromCSBytes;
    expectCodes(get, 2, 6, {"Unknown", "-18.06", "-20", "?"}, {0x00, 0x3F});
    expectByte(get, 1, "Unknown", {0x80});
}

TEST(AudioChannelStatusDecoder, OriginAndDestinationAreFourLatin1Characters) {
    for (auto const& [getter, f] : std::vector<std::pair<Getter, int>>{
             {&Decoder::getOriginFromCSBytes, 6}, {&Decoder::getDestinationFromCSBytes, 10}}) {
        // The bytes just outside the field are set so that an off-by-one shows.
        std::vector<FieldCase> const cases = {
            {{{f - 1, '<'}, {f, 'C'}, {f + 1, 'V'}, {f + 2, '0'}, {f + 3, '8'}, {f + 4, '>'}},
             "CV08"},
            {{{f, 'A'}, {f + 2, 'B'}}, latin1Chars({'A', 0, 'B', 0})},
            {{}, latin1Chars({0, 0, 0, 0})},
            {{{f, 0xE9}, {f + 1, 0xB5}, {f + 2, 0xFF}, {f + 3, 0x7F}},
             latin1Chars({0xE9, 0xB5, 0xFF, 0x7F})},
            // A received "%1" must come out literally, not as a placeholder.
            {{{f, '%'}, {f + 1, '1'}, {f + 2, '%'}, {f + 3, '2'}}, "%1%2"},
        };
        SCOPED_TRACE(f);
        expectTable(getter, cases);
    }
}

TEST(AudioChannelStatusDecoder, SampleAddressAndTimeOfDayKeepReceivedByteOrder) {
    // Byte 14 is printed first even though it is the least significant.
    expectTable(&Decoder::getSampleAddrFromCSBytes,
                {{{{14, 0x12}, {15, 0x34}, {16, 0xAB}, {17, 0xCD}}, "1234abcd"},
                 {{}, "00000000"},
                 {{{15, 0x0A}, {17, 0x01}}, "000a0001"},
                 {{{14, 0x01}}, "01000000"},
                 {{{13, 0xFF}, {16, 0x0F}, {18, 0xFF}}, "00000f00"},
                 {{{14, 0xFF}, {15, 0xFF}, {16, 0xFF}, {17, 0xFF}}, "ffffffff"}});
    expectTable(&Decoder::getSamplesSinceMidnightFromCSBytes,
                {{{{18, 0x0A}, {19, 0x1B}, {20, 0x00}, {21, 0xFF}}, "0A:1B:00:FF"},
                 {{}, "00:00:00:00"},
                 {{{18, 0x01}, {19, 0x02}, {20, 0x03}, {21, 0x04}}, "01:02:03:04"},
                 {{{17, 0xFF}, {20, 0xAB}, {22, 0xFF}}, "00:00:AB:00"},
                 {{{18, 0xFE}, {21, 0xC0}}, "FE:00:00:C0"}});
}

TEST(AudioChannelStatusDecoder, ReliabilityListsTheReliableGroups) {
    Getter const get = &Decoder::getReliabilityFromCSBytes;
    expectCodes(get, 22, 4,
                {"All Ok", "Ch,Sa,Ti - Ok", "Si,Sa,Ti - Ok", "Sa,Ti - Ok", "Si,Ch,Ti - Ok",
                 "Ch,Ti - Ok", "Si,Ti - Ok", "Ti - Ok", "Si,Ch,Sa - Ok", "Ch,Sa - Ok", "Si,Sa - Ok",
                 "Sa - Ok", "Si,Ch - Ok", "Ch - Ok", "Si - Ok", "All Bad"},
                {0x00, 0x0F});
    // Bits 0..3 of byte 22 (above) and the CRC byte do not count.
    expectTable(get, {{{{21, 0xF0}, {23, 0xF0}}, "All Ok"}});
}

TEST(AudioChannelStatusDecoder, StatusFromValidAndCrcFlags) {
    struct Case {
        uint8_t valid;
        uint32_t crcError;
        bool crcPresent;
        char const* expected;
    };
    Case const cases[] = {{1, 0, true, "CRCC Ok"},           {0, 0, true, "Invalid"},
                          {2, 0, true, "Invalid"},           {0xFF, 0, true, "Invalid"},
                          {1, 1, true, "CRCC Bad"},          {0, 0x80000000U, true, "CRCC Bad"},
                          {1, 0, false, "No CRC"},           {0, 0, false, "Invalid"},
                          {2, 0, false, "Invalid"},          {1, 1, false, "No CRC"},
                          {0, 0xFFFFFFFFU, false, "Invalid"}};
    for (Case const& c : cases) {
        SCOPED_TRACE(testing::Message() << "valid " << unsigned{c.valid} << " crcError "
                                        << c.crcError << " crcPresent " << c.crcPresent);
        ChannelStatus const cs = statusWith({}, c.valid, c.crcError);
        EXPECT_EQ(Decoder::getStatus(cs, c.crcPresent), QString(c.expected));
    }
}

TEST(AudioChannelStatusDecoder, DecodeAllChoosesByProfessionalFlag) {
    // Built directly from words: the flag is byte 0 bit 0, bit 24 of word 0.
    for (auto const& [word0, mode] :
         std::vector<std::pair<uint32_t, char const*>>{{0x01000000U, "Pro"},
                                                       {0xFF000000U, "Pro"},
                                                       {0x00000000U, "Consumer"},
                                                       {0x00000001U, "Consumer"},
                                                       {0x00010101U, "Consumer"},
                                                       {0xFE000000U, "Consumer"}}) {
        SCOPED_TRACE(testing::Message() << std::hex << word0);
        ChannelStatus cs;
        cs.valid = 1;
        cs.csWords[0] = word0;
        EXPECT_EQ(Decoder::decodeAll(cs).char0.mode, QString(mode));
    }
}

TEST(AudioChannelStatusDecoder, WholeBlocks) {
    struct Case {
        char const* name;
        ChannelStatus cs;
        QString status;
        std::vector<QString> char0;
        std::vector<QString> trailing;
    };
    QString const fourNuls = latin1Chars({0, 0, 0, 0});
    std::vector<Case> const cases = {
        {"all zero, consumer",
         statusWith({}),
         "No CRC",
         {"Consumer", "PCM", "None", "N/A", "44.1", "Mode 0", "Default (20)/20", "N/A"},
         {"", "", "", "", ""}},
        {"consumer with professional-only bytes set, not captured",
         statusWith({{0, 0x0A}, {3, 0x02}, {4, 0x0B}, {6, 'C'}, {14, 0x12}, {18, 0x34}, {22, 0xA0}},
                    0),
         "Invalid",
         {"Consumer", "Non-PCM", kFiftyFifteen, "N/A", "48", "Mode 0", "24/24", "N/A"},
         {"", "", "", "", ""}},
        {"professional flag only",
         statusWith({{0, 0x01}}),
         "CRCC Ok",
         {"Pro", "PCM", "Unknown", "Locked", "Unspecified", "Unknown", "Default (20)", "Unknown"},
         {fourNuls, fourNuls, "00000000", "00:00:00:00", "All Ok"}},
        {"professional, every field set, CRC failed",
         statusWith({{0, 0x85},  {1, 0x08},  {2, 0xAC},  {4, 0x80},  {6, 'C'},   {7, 'V'},
                     {8, '0'},   {9, '8'},   {10, 'D'},  {11, 'E'},  {12, 'S'},  {13, 'T'},
                     {14, 0x12}, {15, 0x34}, {16, 0x56}, {17, 0x78}, {18, 0xAB}, {19, 0xCD},
                     {20, 0xEF}, {21, 0x01}, {22, 0xA0}},
                    1, 1),
         "CRCC Bad",
         {"Pro", "PCM", "None", "Locked", "47.952", "2 Channel", "24/24", "-20"},
         {"CV08", "DEST", "12345678", "AB:CD:EF:01", "Si,Sa - Ok"}},
        {"professional, non-PCM, unlocked, 88.2 kHz pulled down",
         statusWith({{0, 0x3F}, {1, 0x0F}, {2, 0x4A}, {4, 0xD0}, {22, 0x10}}),
         "CRCC Ok",
         {"Pro", "Non-PCM", "ITU-T J.17", "Unlocked", "88.1119", "Multichannel", "16/20", "-18.06"},
         {fourNuls, fourNuls, "00000000", "00:00:00:00", "Ch,Sa,Ti - Ok"}},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        Decoder::DecodedCs const decoded = Decoder::decodeAll(c.cs);
        EXPECT_EQ(decoded.status, c.status);
        EXPECT_EQ(char0Fields(decoded.char0), c.char0);
        EXPECT_EQ(trailingFields(decoded), c.trailing);
        if (c.char0.front() == "Pro") {
            Decoder::DecodedCs::Char0 char0;
            Decoder::decodeChar0Professional(c.cs.csWords.data(), char0);
            EXPECT_EQ(char0Fields(char0), c.char0);
        }
    }
}

} // namespace
