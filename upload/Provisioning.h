#pragma once

// What a build is provisioned with for the artifact repository. The values
// are written at build time by fpt_nexus_credential_block from the FPT_NEXUS_*
// cache variables into a source fragment that only Provisioning.cpp includes:
// the plain credential never reaches a source file or the binary, only its
// enciphered block does.
//
// The key derivation's seed and discard count and the enciphered block are
// kept as one masked array with internal linkage and a meaningless name, and
// are unmasked only into a Provisioned object, which wipes them again. Anyone
// holding the program can still replay this; it only costs more than reading
// three named symbols (see the README).

#include <array>
#include <cstddef>
#include <cstdint>

#include "upload/CredentialCipher.h"

namespace nexus {

// Seed (4 bytes, little-endian), discard count (4 bytes, little-endian), the
// enciphered "user:password".
inline constexpr std::size_t kProvisionedSize = 8 + kCredentialBlockSize;

// XORs bytes with a keystream drawn from salt (splitmix64): the generator
// masks with it, the program unmasks with it. Inline, so that the salt ends
// up as immediate operands in the code rather than as data beside the
// masked bytes.
inline void applyMask(std::uint64_t salt, std::uint8_t* bytes, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        if (i % 8 == 0) {
            salt += 0x9E3779B97F4A7C15ull;
        }
        std::uint64_t z = salt;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        z ^= z >> 31;
        bytes[i] ^= static_cast<std::uint8_t>(z >> (8 * (i % 8)));
    }
}

// The provisioned secrets, unmasked for as long as this object lives.
class Provisioned {
public:
    Provisioned();
    ~Provisioned();
    Provisioned(Provisioned const&) = delete;
    Provisioned& operator=(Provisioned const&) = delete;

    std::uint32_t keySeed() const { return word(0); }
    std::uint32_t keyDiscard() const { return word(4); }
    std::uint8_t const* credentialBlock() const { return bytes_.data() + 8; }

    // Scheme and authority of the repository, no trailing slash, e.g.
    // "https://nexus.cv084.test". Not a secret.
    static char const* baseAddress();

private:
    std::uint32_t word(std::size_t at) const {
        return std::uint32_t{bytes_[at]} | std::uint32_t{bytes_[at + 1]} << 8 |
               std::uint32_t{bytes_[at + 2]} << 16 | std::uint32_t{bytes_[at + 3]} << 24;
    }

    std::array<std::uint8_t, kProvisionedSize> bytes_;
};

} // namespace nexus
