#include "upload/KeyDerivation.h"

#include <random>
#include <type_traits>

#include <openssl/crypto.h>

namespace nexus {

void deriveKeyMaterial(std::uint32_t seed, std::uint32_t discard, Key& key, Iv& iv) {
    std::mt19937 engine(seed);
    engine.discard(discard);
    auto next = [&engine] { return static_cast<std::uint32_t>(engine()); };
    fillKeyBytes(next, key.data(), key.size());
    fillKeyBytes(next, iv.data(), iv.size());

    // The engine's state would let anyone replay the key: do not leave it on
    // the stack.
    static_assert(std::is_trivially_copyable_v<std::mt19937>);
    OPENSSL_cleanse(&engine, sizeof engine);
}

} // namespace nexus
