#include "upload/Provisioning.h"

#include <openssl/crypto.h>

// kAddress, kMix and kData, written at build time (see Provisioning.h).
#include "NexusProvisioned.inc"

namespace nexus {

Provisioned::Provisioned() {
    static_assert(sizeof kData == kProvisionedSize);
    for (std::size_t i = 0; i < bytes_.size(); ++i) {
        bytes_[i] = kData[i];
    }
    applyMask(kMix, bytes_.data(), bytes_.size());
}

Provisioned::~Provisioned() {
    OPENSSL_cleanse(bytes_.data(), bytes_.size());
}

char const* Provisioned::baseAddress() {
    return kAddress;
}

} // namespace nexus
