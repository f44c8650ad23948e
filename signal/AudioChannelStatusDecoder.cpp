#include "signal/AudioChannelStatusDecoder.h"

#include <QChar>
#include <QLatin1Char>
#include <QStringList>

namespace {

QString const kUnknownCode = QStringLiteral("?");

// Byte n of the channel-status block; see the packing in the header.
uint8_t csByte(uint32_t const* csWords, int n) {
    uint32_t const shift = 24U - 8U * static_cast<uint32_t>(n % 4);
    return static_cast<uint8_t>((csWords[n / 4] >> shift) & 0xFFU);
}

// Four bytes as Latin-1 characters, unfiltered: a station name shorter than
// four characters is padded with NULs on the line and keeps them here.
QString fourCharacters(uint32_t const* csWords, int first) {
    auto character = [&](int n) {
        return QString(QChar(QLatin1Char(static_cast<char>(csByte(csWords, n)))));
    };
    // One substitution pass, so a received "%" followed by a digit is not
    // taken for a later placeholder.
    return QStringLiteral("%1%2%3%4")
        .arg(character(first), character(first + 1), character(first + 2), character(first + 3));
}

// A word length is printed as the length for the maximum in use and that
// maximum; a code of 0 means the source did not say, which is shown as the
// default length.
QString wordLengthText(bool indicated, int length, int maximum) {
    QString const format = indicated ? QStringLiteral("%1/%2") : QStringLiteral("Default (%1)/%2");
    return format.arg(length).arg(maximum);
}

} // namespace

AudioChannelStatusDecoder::DecodedCs AudioChannelStatusDecoder::decodeAll(ChannelStatus const& cs) {
    bool const professional = (csByte(cs.csWords.data(), 0) & 0x01U) != 0;
    return professional ? decodeAllProfessional(cs) : decodeAllConsumer(cs);
}

AudioChannelStatusDecoder::DecodedCs
AudioChannelStatusDecoder::decodeAllProfessional(ChannelStatus const& cs) {
    uint32_t const* words = cs.csWords.data();
    DecodedCs decoded;
    decoded.status = getStatus(cs, true);
    decodeChar0Professional(words, decoded.char0);
    decoded.origin = getOriginFromCSBytes(words);
    decoded.destination = getDestinationFromCSBytes(words);
    decoded.sampleAddress = getSampleAddrFromCSBytes(words);
    decoded.samplesSinceMidnight = getSamplesSinceMidnightFromCSBytes(words);
    decoded.reliability = getReliabilityFromCSBytes(words);
    return decoded;
}

AudioChannelStatusDecoder::DecodedCs
AudioChannelStatusDecoder::decodeAllConsumer(ChannelStatus const& cs) {
    uint32_t const* words = cs.csWords.data();
    DecodedCs decoded;
    decoded.status = getStatus(cs, false);
    decoded.char0.mode = QStringLiteral("Consumer");
    decoded.char0.dataType = getDataTypeFromCSBytes(words);
    decoded.char0.preemphasis = getPreemphasisFromCSBytesConsumer(words);
    // Consumer status carries neither a lock flag nor an alignment level.
    decoded.char0.sourceLock = QStringLiteral("N/A");
    decoded.char0.frequency = getFrequencyFromCSBytesConsumer(words);
    decoded.char0.channelMode = getChannelModeFromCSBytesConsumer(words);
    decoded.char0.wordLength = getWordLengthFromCSBytesConsumer(words);
    decoded.char0.alignmentLevel = QStringLiteral("N/A");
    return decoded;
}

QString AudioChannelStatusDecoder::getStatus(ChannelStatus const& cs, bool crcPresent) {
    if (!crcPresent) {
        return cs.valid == 1 ? QStringLiteral("No CRC") : QStringLiteral("Invalid");
    }
    // A failed CRC outranks the capture flag: the bytes cannot be trusted.
    if (cs.crcError != 0) {
        return QStringLiteral("CRCC Bad");
    }
    return cs.valid == 1 ? QStringLiteral("CRCC Ok") : QStringLiteral("Invalid");
}

void AudioChannelStatusDecoder::decodeChar0Professional(uint32_t const* csWords,
                                                        DecodedCs::Char0& char0) {
    char0.mode = QStringLiteral("Pro");
    char0.dataType = getDataTypeFromCSBytes(csWords);
    char0.preemphasis = getPreemphasisFromCSBytesProfessional(csWords);
    char0.sourceLock = getSourceLockFromCSBytes(csWords);
    char0.frequency = getFrequencyFromCSBytesProfessional(csWords);
    char0.channelMode = getChannelModeFromCSBytesProfessional(csWords);
    char0.wordLength = getWordLengthFromCSBytesProfessional(csWords);
    char0.alignmentLevel = getAlignmentLevelFromCSBytes(csWords);
}

QString AudioChannelStatusDecoder::getDataTypeFromCSBytes(uint32_t const* csWords) {
    return (csByte(csWords, 0) & 0x02U) != 0 ? QStringLiteral("Non-PCM") : QStringLiteral("PCM");
}

QString AudioChannelStatusDecoder::getPreemphasisFromCSBytesProfessional(uint32_t const* csWords) {
    switch (csByte(csWords, 0) & 0x1CU) {
    case 0x00:
        return QStringLiteral("Unknown");
    case 0x04:
        return QStringLiteral("None");
    case 0x0C:
        return QStringLiteral("50/15 \u00B5s");
    case 0x1C:
        return QStringLiteral("ITU-T J.17");
    default:
        return kUnknownCode;
    }
}

QString AudioChannelStatusDecoder::getPreemphasisFromCSBytesConsumer(uint32_t const* csWords) {
    switch (csByte(csWords, 0) & 0x38U) {
    case 0x00:
        return QStringLiteral("None");
    case 0x08:
        return QStringLiteral("50/15 \u00B5s");
    default:
        return kUnknownCode;
    }
}

QString AudioChannelStatusDecoder::getSourceLockFromCSBytes(uint32_t const* csWords) {
    return (csByte(csWords, 0) & 0x20U) != 0 ? QStringLiteral("Unlocked")
                                             : QStringLiteral("Locked");
}

QString AudioChannelStatusDecoder::getFrequencyFromCSBytesProfessional(uint32_t const* csWords) {
    uint8_t const byte4 = csByte(csWords, 4);
    double kHz = 0.0;
    // Byte 0 carries the three basic rates; only when it says nothing does
    // the extended code in byte 4 count.
    switch (csByte(csWords, 0) & 0xC0U) {
    case 0x80:
        kHz = 48.0;
        break;
    case 0x40:
        kHz = 44.1;
        break;
    case 0xC0:
        kHz = 32.0;
        break;
    default:
        // Bit 2 is kept in the mask, so a set bit 2 makes the code unknown.
        switch (byte4 & 0x7CU) {
        case 8:
            kHz = 24.0;
            break;
        case 16:
            kHz = 96.0;
            break;
        case 24:
            kHz = 192.0;
            break;
        case 72:
            kHz = 22.05;
            break;
        case 80:
            kHz = 88.2;
            break;
        case 88:
            kHz = 176.4;
            break;
        default:
            return QStringLiteral("Unspecified");
        }
        break;
    }
    // Bit 7 of byte 4 marks the NTSC-related pull-down of every rate.
    if ((byte4 & 0x80U) != 0) {
        kHz = kHz * 1000.0 / 1001.0;
    }
    return QString::number(kHz, 'g', 6);
}

QString AudioChannelStatusDecoder::getFrequencyFromCSBytesConsumer(uint32_t const* csWords) {
    switch (csByte(csWords, 3) & 0x0FU) {
    case 0:
        return QStringLiteral("44.1");
    case 2:
        return QStringLiteral("48");
    case 3:
        return QStringLiteral("32");
    default:
        return kUnknownCode;
    }
}

QString AudioChannelStatusDecoder::getChannelModeFromCSBytesProfessional(uint32_t const* csWords) {
    uint8_t const code = csByte(csWords, 1) & 0x0FU;
    // The single-channel double-rate mode is recognised on its low three
    // bits alone, and also under code 14.
    if (code == 14 || (code & 0x07U) == 0x01U) {
        return QStringLiteral("1 Ch 2xFs");
    }
    switch (code) {
    case 0:
        return QStringLiteral("Unknown");
    case 8:
        return QStringLiteral("2 Channel");
    case 4:
        return QStringLiteral("1 Channel");
    case 12:
        return QStringLiteral("Pri-Sec");
    case 2:
        return QStringLiteral("Stereo");
    case 15:
        return QStringLiteral("Multichannel");
    default:
        return kUnknownCode;
    }
}

QString AudioChannelStatusDecoder::getChannelModeFromCSBytesConsumer(uint32_t const* csWords) {
    return (csByte(csWords, 0) & 0xC0U) == 0 ? QStringLiteral("Mode 0") : kUnknownCode;
}

QString AudioChannelStatusDecoder::getWordLengthFromCSBytesProfessional(uint32_t const* csWords) {
    uint8_t const byte2 = csByte(csWords, 2);

    // Bits 3..5: the sample length for each possible maximum.
    bool known = true;
    bool indicated = true;
    int forMax20 = 0;
    int forMax24 = 0;
    switch (byte2 & 0x38U) {
    case 0x00:
        indicated = false;
        forMax20 = 20;
        forMax24 = 24;
        break;
    case 0x28:
        forMax20 = 20;
        forMax24 = 24;
        break;
    case 0x20:
        forMax20 = 19;
        forMax24 = 23;
        break;
    case 0x10:
        forMax20 = 18;
        forMax24 = 22;
        break;
    case 0x30:
        forMax20 = 17;
        forMax24 = 21;
        break;
    case 0x08:
        forMax20 = 16;
        forMax24 = 20;
        break;
    default: // 0x18 and 0x38 are reserved
        known = false;
        break;
    }

    // Bits 0..2: how the auxiliary bits are used, which fixes the maximum.
    switch (byte2 & 0x07U) {
    case 0:
        // Auxiliary use not stated: the receiver assumes 20 bits whatever
        // the length code says.
        return QStringLiteral("Default (20)");
    case 4:
        return known ? wordLengthText(indicated, forMax24, 24) : kUnknownCode;
    case 2:
        return known ? wordLengthText(indicated, forMax20, 20) : kUnknownCode;
    case 6:
        return QStringLiteral("User");
    default:
        return kUnknownCode;
    }
}

QString AudioChannelStatusDecoder::getWordLengthFromCSBytesConsumer(uint32_t const* csWords) {
    uint8_t const byte4 = csByte(csWords, 4);
    bool const max24 = (byte4 & 0x01U) != 0;

    bool indicated = true;
    int forMax24 = 0;
    int forMax20 = 0;
    switch (byte4 & 0x0EU) {
    case 0:
        indicated = false;
        forMax24 = 24;
        forMax20 = 20;
        break;
    case 10:
        forMax24 = 24;
        forMax20 = 20;
        break;
    case 8:
        forMax24 = 23;
        forMax20 = 19;
        break;
    case 4:
        forMax24 = 22;
        forMax20 = 18;
        break;
    case 12:
        forMax24 = 21;
        forMax20 = 17;
        break;
    case 2:
        forMax24 = 20;
        forMax20 = 16;
        break;
    default: // 6 and 14 are reserved
        return kUnknownCode;
    }
    return max24 ? wordLengthText(indicated, forMax24, 24)
                 : wordLengthText(indicated, forMax20, 20);
}

QString AudioChannelStatusDecoder::getAlignmentLevelFromCSBytes(uint32_t const* csWords) {
    switch (csByte(csWords, 2) & 0xC0U) {
    case 0x00:
        return QStringLiteral("Unknown");
    case 0x80:
        return QStringLiteral("-20");
    case 0x40:
        return QStringLiteral("-18.06");
    default:
        return kUnknownCode;
    }
}

QString AudioChannelStatusDecoder::getOriginFromCSBytes(uint32_t const* csWords) {
    return fourCharacters(csWords, 6);
}

QString AudioChannelStatusDecoder::getDestinationFromCSBytes(uint32_t const* csWords) {
    return fourCharacters(csWords, 10);
}

QString AudioChannelStatusDecoder::getSampleAddrFromCSBytes(uint32_t const* csWords) {
    // AES3 sends the address least significant byte first, in byte 14. The
    // instrument's displays and logs have always shown the bytes in the order
    // received, and operators compare against those, so byte 14 stays first.
    uint32_t const high = csByte(csWords, 14) * 256U + csByte(csWords, 15);
    uint32_t const low = csByte(csWords, 16) * 256U + csByte(csWords, 17);
    QLatin1Char const pad('0');
    return QStringLiteral("%1%2").arg(high, 4, 16, pad).arg(low, 4, 16, pad);
}

QString AudioChannelStatusDecoder::getSamplesSinceMidnightFromCSBytes(uint32_t const* csWords) {
    // Received order, as for the sample address, although the count is sent
    // least significant byte first.
    QLatin1Char const pad('0');
    auto hexByte = [&](int n) {
        return QStringLiteral("%1").arg(uint32_t{csByte(csWords, n)}, 2, 16, pad);
    };
    return QStringLiteral("%1:%2:%3:%4")
        .arg(hexByte(18), hexByte(19), hexByte(20), hexByte(21))
        .toUpper();
}

QString AudioChannelStatusDecoder::getReliabilityFromCSBytes(uint32_t const* csWords) {
    // A set bit marks its group of bytes as unreliable; list the good ones.
    uint8_t const flags = csByte(csWords, 22) & 0xF0U;
    if (flags == 0) {
        return QStringLiteral("All Ok");
    }
    if (flags == 0xF0) {
        return QStringLiteral("All Bad");
    }
    QStringList reliable;
    if ((flags & 0x10U) == 0) {
        reliable << QStringLiteral("Si"); // bytes 0 to 5
    }
    if ((flags & 0x20U) == 0) {
        reliable << QStringLiteral("Ch"); // bytes 6 to 13
    }
    if ((flags & 0x40U) == 0) {
        reliable << QStringLiteral("Sa"); // bytes 14 to 17
    }
    if ((flags & 0x80U) == 0) {
        reliable << QStringLiteral("Ti"); // bytes 18 to 21
    }
    return reliable.join(QLatin1Char(',')) + QStringLiteral(" - Ok");
}
