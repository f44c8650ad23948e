#include "upload/CredentialCipher.h"

#include <climits>
#include <memory>
#include <utility>

#include <openssl/evp.h>

namespace nexus {

namespace {

struct CipherContextFree {
    void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};
using CipherContext = std::unique_ptr<EVP_CIPHER_CTX, CipherContextFree>;

constexpr int kAesBlock = 16;

// EVP counts in int; a credential never comes near that, but a caller's
// buffer might.
bool fitsInt(std::size_t size) {
    return size <= static_cast<std::size_t>(INT_MAX - kAesBlock);
}

} // namespace

bool encipherCredential(std::uint8_t const* plain, std::size_t size, Key const& key, Iv const& iv,
                        std::vector<std::uint8_t>& block) {
    block.clear();
    if (!fitsInt(size)) {
        return false;
    }
    CipherContext context(EVP_CIPHER_CTX_new());
    if (!context ||
        EVP_EncryptInit_ex(context.get(), EVP_aes_256_cbc(), nullptr, key.data(), iv.data()) != 1) {
        return false;
    }
    std::vector<std::uint8_t> out(size + kAesBlock);
    int written = 0;
    if (EVP_EncryptUpdate(context.get(), out.data(), &written, plain, static_cast<int>(size)) !=
        1) {
        return false;
    }
    int tail = 0;
    if (EVP_EncryptFinal_ex(context.get(), out.data() + written, &tail) != 1) {
        return false;
    }
    out.resize(static_cast<std::size_t>(written + tail));
    block = std::move(out);
    return true;
}

bool decipherCredential(std::uint8_t const* block, std::size_t size, Key const& key, Iv const& iv,
                        SecureBytes& plain) {
    plain = SecureBytes();
    if (!fitsInt(size)) {
        return false;
    }
    SecureBytes out(size + kAesBlock);
    CipherContext context(EVP_CIPHER_CTX_new());
    if (!context ||
        EVP_DecryptInit_ex(context.get(), EVP_aes_256_cbc(), nullptr, key.data(), iv.data()) != 1) {
        return false;
    }
    int written = 0;
    if (EVP_DecryptUpdate(context.get(), out.data(), &written, block, static_cast<int>(size)) !=
        1) {
        return false;
    }
    int tail = 0;
    if (EVP_DecryptFinal_ex(context.get(), out.data() + written, &tail) != 1) {
        return false;
    }
    out.truncate(static_cast<std::size_t>(written + tail));
    plain = std::move(out);
    return true;
}

} // namespace nexus
