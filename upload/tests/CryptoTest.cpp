#include "upload/CredentialCipher.h"
#include "upload/KeyDerivation.h"
#include "upload/SecureBytes.h"

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

std::vector<std::uint8_t> bytesOf(std::string const& text) {
    return std::vector<std::uint8_t>(text.begin(), text.end());
}

// Bytes 0, 1, 2, ... as key or IV.
template <typename Bytes> Bytes counting() {
    Bytes out{};
    for (std::size_t i = 0; i < out.size(); ++i) {
        out[i] = static_cast<std::uint8_t>(i);
    }
    return out;
}

// From: printf 'user:password' | openssl enc -aes-256-cbc -K 0001..1f -iv 0001..0f
std::vector<std::uint8_t> const kUserPasswordBlock = {
    0xb9, 0xbd, 0x7e, 0x10, 0xf1, 0x9c, 0x52, 0x15, 0x3b, 0x19, 0x56, 0x89, 0x74, 0x19, 0xd5, 0x9c};

TEST(KeyDerivation, MapsOutputsToBytesAndSkipsTheTop256) {
    // Boundaries of the r / 0xFFFFFF mapping and of the rejection zone.
    std::vector<std::uint32_t> const outputs = {0x00000000u, 0x00FFFFFEu, 0x00FFFFFFu, 0xFFFFFF00u,
                                                0x01FFFFFDu, 0x01FFFFFEu, 0xFFFFFFFFu, 0xFFFFFEFFu,
                                                0xFEFFFF00u, 0x7FFFFFFFu};
    std::vector<std::uint8_t> const expected = {0, 0, 1, 1, 2, 255, 254, 128};
    std::size_t next = 0;
    std::vector<std::uint8_t> out(expected.size());
    nexus::fillKeyBytes([&] { return outputs.at(next++); }, out.data(), out.size());
    EXPECT_EQ(out, expected);
    EXPECT_EQ(next, outputs.size()); // both rejected outputs were drawn, nothing more
}

TEST(KeyDerivation, SeedsMt19937AndDiscardsBeforeDrawing) {
    // The standard fixes the 10000th output of a default-seeded (5489)
    // mt19937 at 4123659995, so seed 5489 with 9999 discarded must start the
    // key with 4123659995 / 0xFFFFFF = 245.
    nexus::Key key{};
    nexus::Iv iv{};
    nexus::deriveKeyMaterial(5489u, 9999u, key, iv);
    EXPECT_EQ(key[0], 245);

    // One more discarded output shifts the byte stream by one, and the IV
    // carries on where the key stopped (no output of this stream is in the
    // rejection zone).
    nexus::Key shiftedKey{};
    nexus::Iv shiftedIv{};
    nexus::deriveKeyMaterial(5489u, 10000u, shiftedKey, shiftedIv);
    EXPECT_TRUE(std::equal(key.begin() + 1, key.end(), shiftedKey.begin()));
    EXPECT_EQ(shiftedKey[31], iv[0]);
    EXPECT_TRUE(std::equal(iv.begin() + 1, iv.end(), shiftedIv.begin()));

    nexus::Key otherSeedKey{};
    nexus::Iv otherSeedIv{};
    nexus::deriveKeyMaterial(5490u, 9999u, otherSeedKey, otherSeedIv);
    EXPECT_NE(otherSeedKey, key);
}

TEST(CredentialCipher, MatchesOpenSslAes256CbcWithPadding) {
    std::vector<std::uint8_t> const& expected = kUserPasswordBlock;
    auto const plain = bytesOf("user:password");
    std::vector<std::uint8_t> block;
    ASSERT_TRUE(nexus::encipherCredential(plain.data(), plain.size(), counting<nexus::Key>(),
                                          counting<nexus::Iv>(), block));
    EXPECT_EQ(block, expected);

    nexus::SecureBytes back;
    ASSERT_TRUE(nexus::decipherCredential(expected.data(), expected.size(), counting<nexus::Key>(),
                                          counting<nexus::Iv>(), back));
    EXPECT_EQ(std::vector<std::uint8_t>(back.data(), back.data() + back.size()), plain);
}

TEST(CredentialCipher, RefusesBlocksThatDoNotDecipher) {
    nexus::Key wrongKey = counting<nexus::Key>();
    wrongKey[31] ^= 0x01;
    struct Case {
        char const* what;
        std::vector<std::uint8_t> block;
        nexus::Key key;
    };
    for (Case const& c :
         {Case{"not a whole block", std::vector<std::uint8_t>(15, 0x41), counting<nexus::Key>()},
          Case{"empty", {}, counting<nexus::Key>()},
          Case{"wrong key, bad padding", kUserPasswordBlock, wrongKey}}) {
        SCOPED_TRACE(c.what);
        nexus::SecureBytes plain(4);
        EXPECT_FALSE(nexus::decipherCredential(c.block.data(), c.block.size(), c.key,
                                               counting<nexus::Iv>(), plain));
        EXPECT_EQ(plain.size(), 0u);
    }
}

} // namespace
