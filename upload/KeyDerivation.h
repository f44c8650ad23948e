#pragma once

// The cipher key and IV of the repository credential are never stored: they
// are drawn from a Mersenne twister whose seed and discard count are fixed at
// build time. The build-time generator that enciphers the credential and the
// program that deciphers it both come through here, so they cannot drift.

#include <array>
#include <cstddef>
#include <cstdint>

namespace nexus {

inline constexpr std::size_t kKeySize = 32; // AES-256
inline constexpr std::size_t kIvSize = 16;  // one AES block

using Key = std::array<std::uint8_t, kKeySize>;
using Iv = std::array<std::uint8_t, kIvSize>;

// Outputs at or above kRejectFrom are dropped; every other output r gives the
// byte r / kByteDivisor. 0xFFFFFF * 256 == 0xFFFFFF00, so each byte value
// comes from exactly 0xFFFFFF outputs and the bytes stay evenly spread.
inline constexpr std::uint32_t kRejectFrom = 0xFFFFFF00u;
inline constexpr std::uint32_t kByteDivisor = 0xFFFFFFu;

// Fills out[0..count) from successive outputs of next().
template <typename NextOutput>
void fillKeyBytes(NextOutput&& next, std::uint8_t* out, std::size_t count) {
    std::size_t filled = 0;
    while (filled < count) {
        std::uint32_t const r = next();
        if (r >= kRejectFrom) {
            continue;
        }
        out[filled++] = static_cast<std::uint8_t>(r / kByteDivisor);
    }
}

// Seeds MT19937 with seed, throws away discard outputs, then fills key and
// then iv. The generator's state is wiped before returning.
void deriveKeyMaterial(std::uint32_t seed, std::uint32_t discard, Key& key, Iv& iv);

} // namespace nexus
