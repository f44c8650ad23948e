#pragma once

// An 8 MiB memory file standing in for the XDMA user device: PcieAxi maps it
// through its /proc/self/fd path exactly as it maps the device, and the test
// reads and writes its words through ordinary file I/O.

#include <cstdint>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

#include "platform/axi/CalvFpga.h"
#include "platform/axi/PlatformPaths.h"

namespace Calvento::testing {

class RegisterWindowFile {
public:
    RegisterWindowFile() { static_cast<void>(ftruncate(fd_, kCalvFpgaMapSize)); }
    ~RegisterWindowFile() { close(fd_); }
    RegisterWindowFile(RegisterWindowFile const&) = delete;
    RegisterWindowFile& operator=(RegisterWindowFile const&) = delete;

    PlatformPaths paths() const {
        PlatformPaths p;
        p.axiDevice = "/proc/self/fd/" + std::to_string(fd_);
        return p;
    }
    std::uint32_t word(std::uint64_t index) const {
        std::uint32_t value = 0;
        static_cast<void>(pread(fd_, &value, sizeof value, static_cast<off_t>(index * 4)));
        return value;
    }
    void setWord(std::uint64_t index, std::uint32_t value) {
        static_cast<void>(pwrite(fd_, &value, sizeof value, static_cast<off_t>(index * 4)));
    }

private:
    int fd_ = memfd_create("xdma0_user", 0);
};

} // namespace Calvento::testing
