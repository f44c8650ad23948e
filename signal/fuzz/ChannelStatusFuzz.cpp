// Any 24 channel-status bytes, with any validity and CRC flags: the fields
// that copy bits verbatim agree with the bytes they come from. The bytes are
// packed into the captured words here the way the audio block packs them
// (byte 4i in bits 31..24 of word i, down to byte 4i+3 in bits 7..0).
#include "signal/AudioChannelStatusDecoder.h"

#include <cstdio>

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    constexpr size_t kBytes = 24;
    if (size < kBytes + 2) {
        return 0;
    }
    uint8_t const* b = data;
    AudioChannelStatusDecoder::ChannelStatus cs;
    for (size_t n = 0; n < kBytes; ++n) {
        cs.csWords[n / 4] |= uint32_t{b[n]} << (24 - 8 * (n % 4));
    }
    cs.valid = data[kBytes];
    cs.crcError = data[kBytes + 1] & 1;
    auto const pro = AudioChannelStatusDecoder::decodeAllProfessional(cs);
    auto const consumer = AudioChannelStatusDecoder::decodeAllConsumer(cs);
    char address[9];
    char time[12];
    std::snprintf(address, sizeof address, "%02x%02x%02x%02x", b[14], b[15], b[16], b[17]);
    std::snprintf(time, sizeof time, "%02X:%02X:%02X:%02X", b[18], b[19], b[20], b[21]);
    auto const latin1 = [&](size_t first) {
        return QString::fromLatin1(reinterpret_cast<char const*>(b + first), 4);
    };
    char const* const dataType = (b[0] & 0x02) != 0 ? "Non-PCM" : "PCM";
    char const* const proStatus = cs.crcError != 0 ? "CRCC Bad"
                                  : cs.valid == 1  ? "CRCC Ok"
                                                   : "Invalid";
    if (AudioChannelStatusDecoder::decodeAll(cs).char0.mode !=
            ((b[0] & 1) != 0 ? "Pro" : "Consumer") ||
        pro.status != proStatus || consumer.status != (cs.valid == 1 ? "No CRC" : "Invalid") ||
        pro.char0.dataType != dataType || consumer.char0.dataType != dataType ||
        pro.char0.sourceLock != ((b[0] & 0x20) != 0 ? "Unlocked" : "Locked") ||
        pro.origin != latin1(6) || pro.destination != latin1(10) || pro.sampleAddress != address ||
        pro.samplesSinceMidnight != time) {
        __builtin_trap();
    }
    return 0;
}
