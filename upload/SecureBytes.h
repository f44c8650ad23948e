#pragma once

// A byte buffer for secrets (a deciphered credential): zeroed with a wipe the
// compiler cannot drop, explicitly by wipe() and always on destruction.

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include <openssl/crypto.h>

namespace nexus {

class SecureBytes {
public:
    SecureBytes() = default;
    explicit SecureBytes(std::size_t size) : bytes_(size) {}
    ~SecureBytes() { wipe(); }
    SecureBytes(SecureBytes const&) = delete;
    SecureBytes& operator=(SecureBytes const&) = delete;
    // Moves hand the buffer over; nothing is copied.
    SecureBytes(SecureBytes&& other) noexcept : bytes_(std::move(other.bytes_)) {
        other.bytes_.clear();
    }
    SecureBytes& operator=(SecureBytes&& other) noexcept {
        if (this != &other) {
            wipe();
            bytes_ = std::move(other.bytes_);
            other.bytes_.clear();
        }
        return *this;
    }

    // Zeroes every byte; the size is kept.
    void wipe() {
        if (!bytes_.empty()) {
            OPENSSL_cleanse(bytes_.data(), bytes_.size());
        }
    }
    // Shrinks without reallocating (the bytes cut off are zeroed first).
    void truncate(std::size_t size) {
        if (size < bytes_.size()) {
            OPENSSL_cleanse(bytes_.data() + size, bytes_.size() - size);
            bytes_.resize(size);
        }
    }

    std::uint8_t* data() { return bytes_.data(); }
    std::uint8_t const* data() const { return bytes_.data(); }
    std::size_t size() const { return bytes_.size(); }

private:
    std::vector<std::uint8_t> bytes_;
};

} // namespace nexus
