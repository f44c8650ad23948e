// The provisioned secrets, by properties that hold whatever the build's
// values. The mask is a keystream drawn from the salt: masking again undoes
// it, it changes every 8-byte block of zeros it is given somewhere (so it
// hides something), the next salt gives another stream, and the stream does
// not depend on the data. The key and IV come from one generator stream past
// the discarded outputs: one more output discarded shifts the material by one
// byte (or leaves it as it was, when that output was one the bytes skip);
// the same inputs give the same material, another seed other material.
#include "upload/KeyDerivation.h"
#include "upload/Provisioning.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

std::vector<uint8_t> material(uint32_t seed, uint32_t discard) {
    nexus::Key key;
    nexus::Iv iv;
    nexus::deriveKeyMaterial(seed, discard, key, iv);
    std::vector<uint8_t> drawn(key.begin(), key.end());
    drawn.insert(drawn.end(), iv.begin(), iv.end());
    return drawn;
}

std::vector<uint8_t> stream(uint64_t salt, std::size_t count) {
    std::vector<uint8_t> zeros(count, 0);
    nexus::applyMask(salt, zeros.data(), zeros.size());
    return zeros;
}

} // namespace

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
    std::vector<uint8_t> const keystream = stream(salt, std::max<size_t>(bytes.size(), 16));
    bool ok = true;
    for (size_t i = 0; i < bytes.size(); ++i) {
        ok = ok && (bytes[i] ^ data[skip + i]) == keystream[i];
    }
    nexus::applyMask(salt, bytes.data(), bytes.size());
    ok = ok && std::equal(bytes.begin(), bytes.end(), data + skip);
    // Two successive blocks of one stream can never both be zero: each is a
    // different state of a bijective mixer, and only one state gives zero.
    ok = ok && std::any_of(keystream.begin(), keystream.begin() + 16, [](uint8_t b) { return b; });
    std::vector<uint8_t> const next = stream(salt + 1, 16);
    ok = ok && !std::equal(next.begin(), next.end(), keystream.begin());

    std::vector<uint8_t> const drawn = material(seed, discard);
    std::vector<uint8_t> const later = material(seed, discard + 1u);
    ok = ok && drawn == material(seed, discard) && drawn != material(seed + 1u, discard);
    ok = ok && (later == drawn || std::equal(drawn.begin() + 1, drawn.end(), later.begin()));
    if (!ok) {
        __builtin_trap();
    }
    return 0;
}
