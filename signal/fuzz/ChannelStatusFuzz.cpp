// Any captured channel-status block, with any validity and CRC flags, decodes
// to a text in every first-byte field, both as professional and as consumer
// status.
#include "signal/AudioChannelStatusDecoder.h"

#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    AudioChannelStatusDecoder::ChannelStatus cs;
    if (size < sizeof cs.csWords + 2) {
        return 0;
    }
    std::memcpy(cs.csWords.data(), data, sizeof cs.csWords);
    cs.valid = data[sizeof cs.csWords];
    cs.crcError = data[sizeof cs.csWords + 1] & 1;
    for (auto const& d : {AudioChannelStatusDecoder::decodeAll(cs),
                          AudioChannelStatusDecoder::decodeAllProfessional(cs),
                          AudioChannelStatusDecoder::decodeAllConsumer(cs)}) {
        auto const& c = d.char0;
        for (QString const* field :
             {&d.status, &c.mode, &c.dataType, &c.preemphasis, &c.sourceLock, &c.frequency,
              &c.channelMode, &c.wordLength, &c.alignmentLevel}) {
            if (field->isEmpty()) {
                __builtin_trap();
            }
        }
    }
    return 0;
}
