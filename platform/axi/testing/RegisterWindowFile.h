#pragma once

// A temporary 8 MiB file standing in for the XDMA user device: PcieAxi maps
// it exactly as it maps the device, and the test reads and writes its words
// through ordinary file I/O to check what landed where.

#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include <unistd.h>

#include "platform/axi/CalvFpga.h"
#include "platform/axi/PlatformPaths.h"

namespace Calvento::testing {

class RegisterWindowFile {
public:
    RegisterWindowFile() {
        char const* tmp = std::getenv("TMPDIR");
        path_ = std::string(tmp != nullptr ? tmp : "/tmp") + "/xdma_user_XXXXXX";
        fd_ = mkstemp(path_.data());
        if (fd_ < 0 || ftruncate(fd_, static_cast<off_t>(kCalvFpgaMapSize)) != 0) {
            throw std::runtime_error("cannot create register window file " + path_);
        }
    }
    ~RegisterWindowFile() {
        close(fd_);
        unlink(path_.c_str());
    }
    RegisterWindowFile(RegisterWindowFile const&) = delete;
    RegisterWindowFile& operator=(RegisterWindowFile const&) = delete;

    PlatformPaths paths() const {
        PlatformPaths p;
        p.axiDevice = path_;
        return p;
    }
    std::uint32_t word(std::uint64_t index) const {
        std::uint32_t value = 0;
        pread(fd_, &value, sizeof value, static_cast<off_t>(index * sizeof value));
        return value;
    }
    void setWord(std::uint64_t index, std::uint32_t value) {
        pwrite(fd_, &value, sizeof value, static_cast<off_t>(index * sizeof value));
    }

private:
    int fd_ = -1;
    std::string path_;
};

} // namespace Calvento::testing
