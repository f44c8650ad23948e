// fpt_nexus_credential_block: runs at build time and writes the C++ fragment
// that provisions the artifact repository (see upload/Provisioning.h).
//
//   fpt_nexus_credential_block --credential-file FILE --seed N --discard N
//                              --base-url https://HOST[:PORT] --output FILE.inc
//
// FILE holds "user:password" (one trailing line break is ignored). The
// credential is enciphered with the key derived from seed and discard; only
// the block is written. A credential whose block would not be exactly the
// provisioned size is refused, and so is anything else that does not fit,
// so that a bad provisioning fails the build rather than the upload.

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <openssl/crypto.h>

#include "upload/CredentialCipher.h"
#include "upload/KeyDerivation.h"
#include "upload/Provisioning.h"

namespace {

constexpr char const* kTool = "fpt_nexus_credential_block";

int fail(std::string const& message) {
    std::fprintf(stderr, "%s: %s\n", kTool, message.c_str());
    return 1;
}

// Decimal or 0x-prefixed hexadecimal, 32 bits.
bool parseUint32(std::string const& text, std::uint32_t& value) {
    if (text.empty() || text[0] == '-' || text[0] == '+') {
        return false;
    }
    errno = 0;
    char* end = nullptr;
    unsigned long long const parsed = std::strtoull(text.c_str(), &end, 0);
    if (errno != 0 || end == nullptr || *end != '\0' || parsed > 0xFFFFFFFFull) {
        return false;
    }
    value = static_cast<std::uint32_t>(parsed);
    return true;
}

// https, a host, an optional port, no path, nothing that would need quoting.
bool validBaseUrl(std::string const& url) {
    std::string const scheme = "https://";
    if (url.compare(0, scheme.size(), scheme) != 0 || url.size() == scheme.size()) {
        return false;
    }
    for (std::size_t i = scheme.size(); i < url.size(); ++i) {
        char const c = url[i];
        bool const ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                        (c >= '0' && c <= '9') || c == '-' || c == '.' || c == ':' || c == '[' ||
                        c == ']';
        if (!ok) {
            return false;
        }
    }
    return true;
}

// Reads the whole file into a buffer that is wiped on every exit.
bool readCredential(std::string const& path, nexus::SecureBytes& credential) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return false;
    }
    std::vector<char> raw((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad()) {
        OPENSSL_cleanse(raw.data(), raw.size());
        return false;
    }
    std::size_t size = raw.size();
    if (size > 0 && raw[size - 1] == '\n') {
        --size;
        if (size > 0 && raw[size - 1] == '\r') {
            --size;
        }
    }
    nexus::SecureBytes bytes(size);
    std::memcpy(bytes.data(), raw.data(), size);
    OPENSSL_cleanse(raw.data(), raw.size());
    credential = std::move(bytes);
    return true;
}

// A user name before the first colon, and no line breaks or other controls
// that could not go into an HTTP header.
bool validCredential(nexus::SecureBytes const& credential) {
    std::uint8_t const* bytes = credential.data();
    std::size_t colon = credential.size();
    for (std::size_t i = 0; i < credential.size(); ++i) {
        if (bytes[i] < 0x20 || bytes[i] == 0x7F) {
            return false;
        }
        if (bytes[i] == ':' && colon == credential.size()) {
            colon = i;
        }
    }
    return colon != 0 && colon != credential.size();
}

// The fragment Provisioning.cpp includes: everything with internal linkage
// and a name that says nothing; seed, discard count and block masked as one
// array with a salt drawn for this build.
std::string renderSource(std::string const& baseUrl, std::uint32_t seed, std::uint32_t discard,
                         std::vector<std::uint8_t> const& block) {
    std::vector<std::uint8_t> data;
    for (std::uint32_t word : {seed, discard}) {
        for (int shift = 0; shift < 32; shift += 8) {
            data.push_back(static_cast<std::uint8_t>(word >> shift));
        }
    }
    data.insert(data.end(), block.begin(), block.end());
    std::random_device random;
    std::uint64_t const salt = std::uint64_t{random()} << 32 | random();
    nexus::applyMask(salt, data.data(), data.size());

    std::ostringstream out;
    out << "// Written at build time by " << kTool << ". Do not edit, do not commit.\n"
        << "#include <cstdint>\n\nnamespace {\n\n"
        << "constexpr char kAddress[] = \"" << baseUrl << "\";\n"
        << "constexpr std::uint64_t kMix = " << salt << "ull;\n"
        << "constexpr std::uint8_t kData[" << data.size() << "] = {";
    char hex[8];
    for (std::size_t i = 0; i < data.size(); ++i) {
        std::snprintf(hex, sizeof hex, "0x%02x", static_cast<unsigned>(data[i]));
        out << (i % 12 == 0 ? "\n    " : " ") << hex << (i + 1 < data.size() ? "," : "");
    }
    out << "\n};\n\n} // namespace\n";
    return out.str();
}

} // namespace

int main(int argc, char** argv) {
    std::map<std::string, std::string> options;
    for (int i = 1; i < argc; i += 2) {
        std::string const name = argv[i];
        if (name.compare(0, 2, "--") != 0 || i + 1 >= argc) {
            return fail("usage: --credential-file FILE --seed N --discard N --base-url URL "
                        "--output FILE");
        }
        options[name.substr(2)] = argv[i + 1];
    }
    for (char const* required : {"credential-file", "seed", "discard", "base-url", "output"}) {
        if (options.count(required) == 0) {
            return fail(std::string("missing --") + required);
        }
    }

    std::uint32_t seed = 0;
    std::uint32_t discard = 0;
    if (!parseUint32(options["seed"], seed)) {
        return fail("--seed must be a 32-bit unsigned number, got \"" + options["seed"] + "\"");
    }
    if (!parseUint32(options["discard"], discard)) {
        return fail("--discard must be a 32-bit unsigned number, got \"" + options["discard"] +
                    "\"");
    }
    std::string baseUrl = options["base-url"];
    while (!baseUrl.empty() && baseUrl.back() == '/') {
        baseUrl.pop_back();
    }
    if (!validBaseUrl(baseUrl)) {
        return fail("--base-url must be https://HOST or https://HOST:PORT, got \"" + baseUrl +
                    "\"");
    }

    // Never echo the credential or its length in a message: build logs are
    // kept.
    nexus::SecureBytes credential;
    if (!readCredential(options["credential-file"], credential)) {
        return fail("cannot read the credential file " + options["credential-file"]);
    }
    if (!validCredential(credential)) {
        return fail("the credential file must hold user:password on one line");
    }

    nexus::Key key{};
    nexus::Iv iv{};
    nexus::deriveKeyMaterial(seed, discard, key, iv);
    std::vector<std::uint8_t> block;
    bool const enciphered =
        nexus::encipherCredential(credential.data(), credential.size(), key, iv, block);
    OPENSSL_cleanse(key.data(), key.size());
    OPENSSL_cleanse(iv.data(), iv.size());
    credential.wipe();
    if (!enciphered) {
        return fail("enciphering the credential failed");
    }
    if (block.size() != nexus::kCredentialBlockSize) {
        return fail("the enciphered credential must be exactly " +
                    std::to_string(nexus::kCredentialBlockSize) +
                    " bytes; user:password must be 96 to 111 bytes long");
    }

    // Write beside the target and rename, so an interrupted build never
    // leaves half a source file behind.
    std::string const output = options["output"];
    std::string const partial = output + ".partial";
    {
        std::ofstream out(partial, std::ios::binary | std::ios::trunc);
        out << renderSource(baseUrl, seed, discard, block);
        if (!out.flush()) {
            std::remove(partial.c_str());
            return fail("cannot write " + partial);
        }
    }
    if (std::rename(partial.c_str(), output.c_str()) != 0) {
        std::remove(partial.c_str());
        return fail("cannot write " + output);
    }
    return 0;
}
