#pragma once

// What a build is provisioned with for the artifact repository. The
// definitions are written at build time by fpt_nexus_credential_block from
// the FPT_NEXUS_* cache variables; the plain credential never reaches a
// source file or the binary, only its enciphered block does.

#include <array>
#include <cstdint>

#include "upload/CredentialCipher.h"

namespace nexus::provisioned {

// Scheme and authority of the repository, no trailing slash,
// e.g. "https://nexus.cv084.test".
extern char const kBaseAddress[];

// Fixed inputs of deriveKeyMaterial().
extern std::uint32_t const kKeySeed;
extern std::uint32_t const kKeyDiscard;

// "user:password", enciphered with the derived key and IV.
extern std::array<std::uint8_t, kCredentialBlockSize> const kCredentialBlock;

} // namespace nexus::provisioned
