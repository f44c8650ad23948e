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

// The capture packs byte 4i into bits 31..24 of word i, byte 4i+1 into
// bits 23..16, byte 4i+2 into bits 15..8 and byte 4i+3 into bits 7..0.
Words pack(std::array<uint8_t, 24> const& bytes) {
    Words words{};
    for (std::size_t i = 0; i < words.size(); ++i) {
        words[i] = (uint32_t{bytes[4 * i]} << 24) | (uint32_t{bytes[4 * i + 1]} << 16) |
                   (uint32_t{bytes[4 * i + 2]} << 8) | uint32_t{bytes[4 * i + 3]};
    }
    return words;
}

// A block of zero bytes except for the listed (byte number, value) pairs.
Words wordsWith(ByteSettings const& settings) {
    std::array<uint8_t, 24> bytes{};
    for (auto const& [n, value] : settings) {
        bytes.at(static_cast<std::size_t>(n)) = value;
    }
    return pack(bytes);
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

TEST(AudioChannelStatusDecoder, DataTypeIsByteZeroBitOne) {
    expectTable(&Decoder::getDataTypeFromCSBytes,
                {
                    {{{0, 0x00}}, "PCM"},
                    {{{0, 0x02}}, "Non-PCM"},
                    {{{0, 0xFD}}, "PCM"},
                    {{{0, 0xFF}}, "Non-PCM"},
                    // Same bit in the other bytes of word 0 must not count.
                    {{{1, 0x02}, {2, 0x02}, {3, 0x02}}, "PCM"},
                });
}

TEST(AudioChannelStatusDecoder, ProfessionalPreemphasisCodes) {
    expectTable(&Decoder::getPreemphasisFromCSBytesProfessional, {
                                                                     {{{0, 0x00}}, "Unknown"},
                                                                     {{{0, 0x04}}, "None"},
                                                                     {{{0, 0x08}}, "?"},
                                                                     {{{0, 0x0C}}, kFiftyFifteen},
                                                                     {{{0, 0x10}}, "?"},
                                                                     {{{0, 0x14}}, "?"},
                                                                     {{{0, 0x18}}, "?"},
                                                                     {{{0, 0x1C}}, "ITU-T J.17"},
                                                                     // Bits outside 2..4 set.
                                                                     {{{0, 0xE3}}, "Unknown"},
                                                                     {{{0, 0xE7}}, "None"},
                                                                     {{{0, 0xEF}}, kFiftyFifteen},
                                                                     {{{0, 0xFF}}, "ITU-T J.17"},
                                                                     {{{3, 0x1C}}, "Unknown"},
                                                                 });
}

TEST(AudioChannelStatusDecoder, ConsumerPreemphasisCodes) {
    expectTable(&Decoder::getPreemphasisFromCSBytesConsumer, {
                                                                 {{{0, 0x00}}, "None"},
                                                                 {{{0, 0x08}}, kFiftyFifteen},
                                                                 {{{0, 0x10}}, "?"},
                                                                 {{{0, 0x18}}, "?"},
                                                                 {{{0, 0x20}}, "?"},
                                                                 {{{0, 0x28}}, "?"},
                                                                 {{{0, 0x30}}, "?"},
                                                                 {{{0, 0x38}}, "?"},
                                                                 // Bits outside 3..5 set.
                                                                 {{{0, 0xC7}}, "None"},
                                                                 {{{0, 0xCF}}, kFiftyFifteen},
                                                                 {{{3, 0x08}}, "None"},
                                                             });
}

TEST(AudioChannelStatusDecoder, SourceLockIsByteZeroBitFive) {
    expectTable(&Decoder::getSourceLockFromCSBytes, {
                                                        {{{0, 0x00}}, "Locked"},
                                                        {{{0, 0x20}}, "Unlocked"},
                                                        {{{0, 0xDF}}, "Locked"},
                                                        {{{0, 0xFF}}, "Unlocked"},
                                                        {{{1, 0x20}}, "Locked"},
                                                    });
}

TEST(AudioChannelStatusDecoder, ProfessionalFrequencyWithAndWithoutPullDown) {
    expectTable(&Decoder::getFrequencyFromCSBytesProfessional,
                {
                    // Basic rates in byte 0 bits 6..7.
                    {{{0, 0x80}}, "48"},
                    {{{0, 0x40}}, "44.1"},
                    {{{0, 0xC0}}, "32"},
                    {{{0, 0x80}, {4, 0x80}}, "47.952"},
                    {{{0, 0x40}, {4, 0x80}}, "44.0559"},
                    {{{0, 0xC0}, {4, 0x80}}, "31.968"},
                    // Byte 0 wins over an extended code in byte 4.
                    {{{0, 0x80}, {4, 0x10}}, "48"},
                    {{{0, 0xBF}}, "48"},
                    // Extended rates in byte 4 bits 3..6 when byte 0 says nothing.
                    {{{4, 0x08}}, "24"},
                    {{{4, 0x10}}, "96"},
                    {{{4, 0x18}}, "192"},
                    {{{4, 0x48}}, "22.05"},
                    {{{4, 0x50}}, "88.2"},
                    {{{4, 0x58}}, "176.4"},
                    {{{4, 0x88}}, "23.976"},
                    {{{4, 0x90}}, "95.9041"},
                    {{{4, 0x98}}, "191.808"},
                    {{{4, 0xC8}}, "22.028"},
                    {{{4, 0xD0}}, "88.1119"},
                    {{{4, 0xD8}}, "176.224"},
                    // Bits 0..1 of byte 4 are not part of the code.
                    {{{4, 0x0B}}, "24"},
                    {{{0, 0x3F}, {4, 0x93}}, "95.9041"},
                    // Nothing indicated, or a code not known.
                    {{}, "Unspecified"},
                    {{{4, 0x80}}, "Unspecified"},
                    {{{4, 0x04}}, "Unspecified"},
                    {{{4, 0x0C}}, "Unspecified"},
                    {{{4, 0x8C}}, "Unspecified"},
                    {{{4, 0x20}}, "Unspecified"},
                    {{{4, 0x40}}, "Unspecified"},
                    {{{4, 0x7C}}, "Unspecified"},
                    {{{4, 0xFF}}, "Unspecified"},
                    {{{3, 0x80}, {5, 0x10}}, "Unspecified"},
                });
}

TEST(AudioChannelStatusDecoder, ConsumerFrequencyCodes) {
    expectTable(&Decoder::getFrequencyFromCSBytesConsumer,
                {
                    {{{3, 0x00}}, "44.1"},
                    {{{3, 0x01}}, "?"},
                    {{{3, 0x02}}, "48"},
                    {{{3, 0x03}}, "32"},
                    {{{3, 0x04}}, "?"},
                    {{{3, 0x05}}, "?"},
                    {{{3, 0x06}}, "?"},
                    {{{3, 0x07}}, "?"},
                    {{{3, 0x08}}, "?"},
                    {{{3, 0x09}}, "?"},
                    {{{3, 0x0A}}, "?"},
                    {{{3, 0x0B}}, "?"},
                    {{{3, 0x0C}}, "?"},
                    {{{3, 0x0D}}, "?"},
                    {{{3, 0x0E}}, "?"},
                    {{{3, 0x0F}}, "?"},
                    // Clock accuracy in the high nibble is not part of the code.
                    {{{3, 0xF0}}, "44.1"},
                    {{{3, 0xF2}}, "48"},
                    {{{3, 0x33}}, "32"},
                    {{{0, 0x02}, {4, 0x02}}, "44.1"},
                });
}

TEST(AudioChannelStatusDecoder, ProfessionalChannelModeCodes) {
    expectTable(&Decoder::getChannelModeFromCSBytesProfessional,
                {
                    {{{1, 0x00}}, "Unknown"},
                    {{{1, 0x01}}, "1 Ch 2xFs"},
                    {{{1, 0x02}}, "Stereo"},
                    {{{1, 0x03}}, "?"},
                    {{{1, 0x04}}, "1 Channel"},
                    {{{1, 0x05}}, "?"},
                    {{{1, 0x06}}, "?"},
                    {{{1, 0x07}}, "?"},
                    {{{1, 0x08}}, "2 Channel"},
                    {{{1, 0x09}}, "1 Ch 2xFs"},
                    {{{1, 0x0A}}, "?"},
                    {{{1, 0x0B}}, "?"},
                    {{{1, 0x0C}}, "Pri-Sec"},
                    {{{1, 0x0D}}, "?"},
                    {{{1, 0x0E}}, "1 Ch 2xFs"},
                    {{{1, 0x0F}}, "Multichannel"},
                    // User bits in the high nibble are not part of the code.
                    {{{1, 0xF0}}, "Unknown"},
                    {{{1, 0xF8}}, "2 Channel"},
                    {{{1, 0x71}}, "1 Ch 2xFs"},
                    {{{0, 0x08}, {2, 0x08}}, "Unknown"},
                });
}

TEST(AudioChannelStatusDecoder, ConsumerChannelModeIsModeZeroOnly) {
    expectTable(&Decoder::getChannelModeFromCSBytesConsumer, {
                                                                 {{{0, 0x00}}, "Mode 0"},
                                                                 {{{0, 0x3F}}, "Mode 0"},
                                                                 {{{0, 0x40}}, "?"},
                                                                 {{{0, 0x80}}, "?"},
                                                                 {{{0, 0xC0}}, "?"},
                                                                 {{{1, 0xC0}}, "Mode 0"},
                                                             });
}

TEST(AudioChannelStatusDecoder, ProfessionalWordLengthByCodeAndMaximum) {
    expectTable(&Decoder::getWordLengthFromCSBytesProfessional,
                {
                    // Auxiliary bits code 4: maximum 24.
                    {{{2, 0x04}}, "Default (24)/24"},
                    {{{2, 0x2C}}, "24/24"},
                    {{{2, 0x24}}, "23/24"},
                    {{{2, 0x14}}, "22/24"},
                    {{{2, 0x34}}, "21/24"},
                    {{{2, 0x0C}}, "20/24"},
                    {{{2, 0x1C}}, "?"},
                    {{{2, 0x3C}}, "?"},
                    // Auxiliary bits code 2: maximum 20.
                    {{{2, 0x02}}, "Default (20)/20"},
                    {{{2, 0x2A}}, "20/20"},
                    {{{2, 0x22}}, "19/20"},
                    {{{2, 0x12}}, "18/20"},
                    {{{2, 0x32}}, "17/20"},
                    {{{2, 0x0A}}, "16/20"},
                    {{{2, 0x1A}}, "?"},
                    {{{2, 0x3A}}, "?"},
                    // Auxiliary use not indicated: the length code does not matter.
                    {{{2, 0x00}}, "Default (20)"},
                    {{{2, 0x20}}, "Default (20)"},
                    {{{2, 0x18}}, "Default (20)"},
                    {{{2, 0x38}}, "Default (20)"},
                    // User-defined auxiliary use.
                    {{{2, 0x06}}, "User"},
                    {{{2, 0x26}}, "User"},
                    {{{2, 0x1E}}, "User"},
                    // Reserved auxiliary codes.
                    {{{2, 0x01}}, "?"},
                    {{{2, 0x03}}, "?"},
                    {{{2, 0x05}}, "?"},
                    {{{2, 0x07}}, "?"},
                    {{{2, 0x2D}}, "?"},
                    // Alignment level bits are not part of either code.
                    {{{2, 0xEC}}, "24/24"},
                    {{{2, 0x8A}}, "16/20"},
                    {{{1, 0x2C}, {3, 0x2C}}, "Default (20)"},
                });
}

TEST(AudioChannelStatusDecoder, ConsumerWordLengthByCodeAndMaximum) {
    expectTable(&Decoder::getWordLengthFromCSBytesConsumer,
                {
                    // Bit 0 set: maximum 24.
                    {{{4, 0x01}}, "Default (24)/24"},
                    {{{4, 0x0B}}, "24/24"},
                    {{{4, 0x09}}, "23/24"},
                    {{{4, 0x05}}, "22/24"},
                    {{{4, 0x0D}}, "21/24"},
                    {{{4, 0x03}}, "20/24"},
                    {{{4, 0x07}}, "?"},
                    {{{4, 0x0F}}, "?"},
                    // Bit 0 clear: maximum 20.
                    {{{4, 0x00}}, "Default (20)/20"},
                    {{{4, 0x0A}}, "20/20"},
                    {{{4, 0x08}}, "19/20"},
                    {{{4, 0x04}}, "18/20"},
                    {{{4, 0x0C}}, "17/20"},
                    {{{4, 0x02}}, "16/20"},
                    {{{4, 0x06}}, "?"},
                    {{{4, 0x0E}}, "?"},
                    // The original sampling frequency in the high nibble is ignored.
                    {{{4, 0xF3}}, "20/24"},
                    {{{4, 0xF0}}, "Default (20)/20"},
                    {{{3, 0x0B}, {5, 0x0B}}, "Default (20)/20"},
                });
}

TEST(AudioChannelStatusDecoder, AlignmentLevelCodes) {
    expectTable(&Decoder::getAlignmentLevelFromCSBytes, {
                                                            {{{2, 0x00}}, "Unknown"},
                                                            {{{2, 0x80}}, "-20"},
                                                            {{{2, 0x40}}, "-18.06"},
                                                            {{{2, 0xC0}}, "?"},
                                                            {{{2, 0x3F}}, "Unknown"},
                                                            {{{2, 0xBF}}, "-20"},
                                                            {{{1, 0x80}}, "Unknown"},
                                                        });
}

TEST(AudioChannelStatusDecoder, OriginAndDestinationAreFourLatin1Characters) {
    struct Case {
        Getter getter;
        int first;
    };
    for (Case const field :
         {Case{&Decoder::getOriginFromCSBytes, 6}, Case{&Decoder::getDestinationFromCSBytes, 10}}) {
        int const f = field.first;
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
        expectTable(field.getter, cases);
    }
}

TEST(AudioChannelStatusDecoder, SampleAddressKeepsReceivedByteOrder) {
    expectTable(&Decoder::getSampleAddrFromCSBytes,
                {
                    {{{14, 0x12}, {15, 0x34}, {16, 0xAB}, {17, 0xCD}}, "1234abcd"},
                    {{}, "00000000"},
                    {{{15, 0x0A}, {17, 0x01}}, "000a0001"},
                    // Byte 14 is printed first even though it is the least significant.
                    {{{14, 0x01}}, "01000000"},
                    {{{13, 0xFF}, {16, 0x0F}, {18, 0xFF}}, "00000f00"},
                    {{{14, 0xFF}, {15, 0xFF}, {16, 0xFF}, {17, 0xFF}}, "ffffffff"},
                });
}

TEST(AudioChannelStatusDecoder, TimeOfDayKeepsReceivedByteOrder) {
    expectTable(&Decoder::getSamplesSinceMidnightFromCSBytes,
                {
                    {{{18, 0x0A}, {19, 0x1B}, {20, 0x00}, {21, 0xFF}}, "0A:1B:00:FF"},
                    {{}, "00:00:00:00"},
                    {{{18, 0x01}, {19, 0x02}, {20, 0x03}, {21, 0x04}}, "01:02:03:04"},
                    {{{17, 0xFF}, {20, 0xAB}, {22, 0xFF}}, "00:00:AB:00"},
                    {{{18, 0xFE}, {21, 0xC0}}, "FE:00:00:C0"},
                });
}

TEST(AudioChannelStatusDecoder, ReliabilityListsTheReliableGroups) {
    expectTable(&Decoder::getReliabilityFromCSBytes,
                {
                    {{{22, 0x00}}, "All Ok"},
                    {{{22, 0x10}}, "Ch,Sa,Ti - Ok"},
                    {{{22, 0x20}}, "Si,Sa,Ti - Ok"},
                    {{{22, 0x30}}, "Sa,Ti - Ok"},
                    {{{22, 0x40}}, "Si,Ch,Ti - Ok"},
                    {{{22, 0x50}}, "Ch,Ti - Ok"},
                    {{{22, 0x60}}, "Si,Ti - Ok"},
                    {{{22, 0x70}}, "Ti - Ok"},
                    {{{22, 0x80}}, "Si,Ch,Sa - Ok"},
                    {{{22, 0x90}}, "Ch,Sa - Ok"},
                    {{{22, 0xA0}}, "Si,Sa - Ok"},
                    {{{22, 0xB0}}, "Sa - Ok"},
                    {{{22, 0xC0}}, "Si,Ch - Ok"},
                    {{{22, 0xD0}}, "Ch - Ok"},
                    {{{22, 0xE0}}, "Si - Ok"},
                    {{{22, 0xF0}}, "All Bad"},
                    // Bits 0..3 of byte 22 and the CRC byte do not count.
                    {{{22, 0x0F}}, "All Ok"},
                    {{{22, 0xFF}}, "All Bad"},
                    {{{22, 0xAF}}, "Si,Sa - Ok"},
                    {{{21, 0xF0}, {23, 0xF0}}, "All Ok"},
                });
}

TEST(AudioChannelStatusDecoder, StatusFromValidAndCrcFlags) {
    struct Case {
        uint8_t valid;
        uint32_t crcError;
        bool crcPresent;
        char const* expected;
    };
    Case const cases[] = {
        {1, 0, true, "CRCC Ok"},
        {0, 0, true, "Invalid"},
        {2, 0, true, "Invalid"},
        {0xFF, 0, true, "Invalid"},
        {1, 1, true, "CRCC Bad"},
        {0, 0x80000000U, true, "CRCC Bad"},
        {1, 0, false, "No CRC"},
        {0, 0, false, "Invalid"},
        {2, 0, false, "Invalid"},
        {1, 1, false, "No CRC"},
        {0, 0xFFFFFFFFU, false, "Invalid"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(testing::Message() << "valid " << unsigned{c.valid} << " crcError "
                                        << c.crcError << " crcPresent " << c.crcPresent);
        ChannelStatus const cs = statusWith({}, c.valid, c.crcError);
        EXPECT_EQ(Decoder::getStatus(cs, c.crcPresent), QString(c.expected));
    }
}

TEST(AudioChannelStatusDecoder, DecodeAllChoosesByProfessionalFlag) {
    // Built directly from words: the flag is byte 0 bit 0, bit 24 of word 0.
    struct Case {
        uint32_t word0;
        char const* mode;
    };
    for (Case const c : {Case{0x01000000U, "Pro"}, Case{0xFF000000U, "Pro"},
                         Case{0x00000000U, "Consumer"}, Case{0x00000001U, "Consumer"},
                         Case{0x00010101U, "Consumer"}, Case{0xFE000000U, "Consumer"}}) {
        SCOPED_TRACE(testing::Message() << std::hex << c.word0);
        ChannelStatus cs;
        cs.valid = 1;
        cs.csWords[0] = c.word0;
        EXPECT_EQ(Decoder::decodeAll(cs).char0.mode, QString(c.mode));
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
