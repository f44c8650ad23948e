#include "platform/axi/CalvFpga.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "platform/axi/PlatformPaths.h"

int calv_open_fpga(unsigned int** base) {
    return calv_open_fpga(base, Calvento::PlatformPaths().axiDevice.c_str());
}

int calv_open_fpga(unsigned int** base, char const* devicePath) {
    int fd = open(devicePath, O_RDWR | O_SYNC);
    if (fd < 0) {
        // No newline: the message has always been written this way and log
        // scrapers on the instrument match it as is.
        fprintf(stderr, "CALVLIB: Error opening device file %s: %s", devicePath, strerror(errno));
        return fd;
    }
    void* mapping =
        mmap(nullptr, Calvento::kCalvFpgaMapSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    // The mapping result is handed back even when it failed; callers that
    // keep it must look at the returned descriptor before using it.
    *base = static_cast<unsigned int*>(mapping);
    if (mapping == MAP_FAILED) {
        perror("CALVLIB: failed to map memory");
        // The caller only learns -1, so nobody else could ever close it.
        close(fd);
        return -1;
    }
    return fd;
}

void calv_close_fpga(int fd, unsigned int* base) {
    if (fd < 0) {
        return;
    }
    if (base != nullptr && munmap(base, Calvento::kCalvFpgaMapSize) != 0) {
        perror("CALVLIB: Couldn't unmap FPGA\n");
    }
    close(fd);
}

int calv_write_fpga_reg(unsigned int* base, long wordIndex, unsigned int value) {
    if (base == nullptr) {
        return -EINVAL;
    }
    // The window is device memory: every store must reach the bus.
    *(static_cast<unsigned int volatile*>(base) + wordIndex) = value;
    return 0;
}

int calv_read_fpga_reg(unsigned int* base, long wordIndex, unsigned int* value) {
    if (base == nullptr || value == nullptr) {
        return -EINVAL;
    }
    *value = *(static_cast<unsigned int volatile*>(base) + wordIndex);
    return 0;
}
