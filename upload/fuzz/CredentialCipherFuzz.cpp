// Deciphering any block with any key and IV either fails with nothing left
// in the output or yields fewer bytes than the block; whatever deciphers,
// enciphers back to the same block.
#include "upload/CredentialCipher.h"

#include <cstring>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    nexus::Key key{};
    nexus::Iv iv{};
    if (size < key.size() + iv.size()) {
        return 0;
    }
    std::memcpy(key.data(), data, key.size());
    std::memcpy(iv.data(), data + key.size(), iv.size());
    uint8_t const* block = data + key.size() + iv.size();
    size_t const blockSize = size - key.size() - iv.size();
    nexus::SecureBytes plain(7);
    if (!nexus::decipherCredential(block, blockSize, key, iv, plain)) {
        if (plain.size() != 0) {
            __builtin_trap();
        }
        return 0;
    }
    std::vector<uint8_t> again;
    if (plain.size() >= blockSize ||
        !nexus::encipherCredential(plain.data(), plain.size(), key, iv, again) ||
        again.size() != blockSize || std::memcmp(again.data(), block, blockSize) != 0) {
        __builtin_trap();
    }
    return 0;
}
