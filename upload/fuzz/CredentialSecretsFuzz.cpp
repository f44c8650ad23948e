// The provisioned secrets. Masking with a build's salt is undone by masking
// again with it, whatever the bytes. The key and then the IV are drawn from
// MT19937 seeded with the seed, past the discarded outputs: 256 bands of
// 0xFFFFFF outputs each give one byte value, and the outputs above the last
// band are skipped.
#include "upload/KeyDerivation.h"
#include "upload/Provisioning.h"

#include <cstring>
#include <random>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    uint64_t salt = 0;
    uint32_t seed = 0;
    uint16_t discard = 0;
    if (size < sizeof salt + sizeof seed + sizeof discard) {
        return 0;
    }
    std::memcpy(&salt, data, sizeof salt);
    std::memcpy(&seed, data + sizeof salt, sizeof seed);
    std::memcpy(&discard, data + sizeof salt + sizeof seed, sizeof discard);
    size_t const skip = sizeof salt + sizeof seed + sizeof discard;
    std::vector<uint8_t> bytes(data + skip, data + size);
    nexus::applyMask(salt, bytes.data(), bytes.size());
    nexus::applyMask(salt, bytes.data(), bytes.size());
    bool ok = std::equal(bytes.begin(), bytes.end(), data + skip);

    nexus::Key key;
    nexus::Iv iv;
    nexus::deriveKeyMaterial(seed, discard, key, iv);
    std::vector<uint8_t> drawn(key.begin(), key.end());
    drawn.insert(drawn.end(), iv.begin(), iv.end());
    std::mt19937 engine(seed);
    engine.discard(discard);
    constexpr uint64_t kBand = 0xFFFFFF;
    for (uint8_t const byte : drawn) {
        uint64_t output = engine();
        while (output >= 256 * kBand) {
            output = engine();
        }
        ok = ok && output >= byte * kBand && output < (byte + 1) * kBand;
    }
    if (!ok) {
        __builtin_trap();
    }
    return 0;
}
