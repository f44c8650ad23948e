#pragma once

// AES-256-CBC with standard block padding over the repository credential
// ("user:password"): enciphered once at build time, deciphered for each
// upload attempt.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "upload/KeyDerivation.h"
#include "upload/SecureBytes.h"

namespace nexus {

// The provisioned block is always this long: seven AES blocks, i.e. a
// credential of 96 to 111 bytes.
inline constexpr std::size_t kCredentialBlockSize = 112;

// False if any OpenSSL step fails; block then holds nothing.
bool encipherCredential(std::uint8_t const* plain, std::size_t size, Key const& key, Iv const& iv,
                        std::vector<std::uint8_t>& block);

// False if any OpenSSL step fails (including bad padding); plain is then
// empty. On success plain holds exactly the deciphered bytes.
bool decipherCredential(std::uint8_t const* block, std::size_t size, Key const& key, Iv const& iv,
                        SecureBytes& plain);

} // namespace nexus
