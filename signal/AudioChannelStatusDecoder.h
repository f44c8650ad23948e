#pragma once

// Turns the 24 channel-status bytes of an AES3 (professional) or IEC 60958
// (consumer) audio channel into short display texts. Stateless: every
// operation is a static function of the captured words.
//
// The words are packed as the audio processing block captures them: word i
// holds bytes 4i..4i+3, byte 4i in bits 31..24 down to byte 4i+3 in bits 7..0,
// and AES3 bit k of a byte is bit k of that byte (bit 0 least significant).
// Every operation taking words reads AudioProcessingRegisterApi::kCsWordCount
// of them. A reserved or unknown code decodes to "?".

#include <cstdint>

#include <QString>

#include "signal/AudioProcessingRegisterApi.h"

class AudioChannelStatusDecoder {
public:
    using ChannelStatus = AudioProcessingRegisterApi::ChannelStatus;

    struct DecodedCs {
        struct Char0 {
            QString mode;
            QString dataType;
            QString preemphasis;
            QString sourceLock;
            QString frequency;
            QString channelMode;
            QString wordLength;
            QString alignmentLevel;
        };

        QString status;
        Char0 char0;
        // Professional status only; left empty for consumer status.
        QString origin;
        QString destination;
        QString sampleAddress;
        QString samplesSinceMidnight;
        QString reliability;
    };

    // Professional or consumer decoding, chosen by byte 0 bit 0.
    static DecodedCs decodeAll(ChannelStatus const& cs);
    static DecodedCs decodeAllProfessional(ChannelStatus const& cs);
    static DecodedCs decodeAllConsumer(ChannelStatus const& cs);

    // Block status; crcPresent is true for professional status, which carries
    // a CRC byte, and false for consumer status, which has none.
    static QString getStatus(ChannelStatus const& cs, bool crcPresent);

    // Fills every Char0 field from bytes 0 to 4 of professional status.
    static void decodeChar0Professional(uint32_t const* csWords, DecodedCs::Char0& char0);

    static QString getDataTypeFromCSBytes(uint32_t const* csWords);
    static QString getPreemphasisFromCSBytesProfessional(uint32_t const* csWords);
    static QString getPreemphasisFromCSBytesConsumer(uint32_t const* csWords);
    static QString getSourceLockFromCSBytes(uint32_t const* csWords);
    // kHz as a bare number, e.g. "48", "44.0559", or "Unspecified".
    static QString getFrequencyFromCSBytesProfessional(uint32_t const* csWords);
    static QString getFrequencyFromCSBytesConsumer(uint32_t const* csWords);
    static QString getChannelModeFromCSBytesProfessional(uint32_t const* csWords);
    static QString getChannelModeFromCSBytesConsumer(uint32_t const* csWords);
    // "<length>/<maximum>", "Default (<length>)/<maximum>", "Default (20)", "User" or "?".
    static QString getWordLengthFromCSBytesProfessional(uint32_t const* csWords);
    static QString getWordLengthFromCSBytesConsumer(uint32_t const* csWords);
    static QString getAlignmentLevelFromCSBytes(uint32_t const* csWords);
    static QString getOriginFromCSBytes(uint32_t const* csWords);
    static QString getDestinationFromCSBytes(uint32_t const* csWords);
    static QString getSampleAddrFromCSBytes(uint32_t const* csWords);
    static QString getSamplesSinceMidnightFromCSBytes(uint32_t const* csWords);
    static QString getReliabilityFromCSBytes(uint32_t const* csWords);
};
