// Preloaded into every process of the emulated instrument (through the
// namespace's /etc/ld.so.preload), never into a process on the host.
//
// Two things of the real controller that a FUSE-backed emulation cannot
// give by itself:
//  - evdev takes EVIOCGRAB's argument as a plain value (ioctl(fd,
//    EVIOCGRAB, 1)), but FUSE decodes the request number, which declares an
//    int pointer, and so faults on the value. For descriptors on the
//    emulated input nodes only, the value is passed on by address.
//    qemu-user (an armhf build of the program run on this machine) knows no
//    evdev request and refuses EVIOCGRAB with ENOSYS; there the grab goes
//    as TIOCEXCL/TIOCNXCL, which qemu passes through without an argument
//    and which the emulated nodes take as grab and release.
//  - "/proc/calv_pcie" belongs to the maker's PCIe driver; procfs cannot be
//    overlaid, so opening that one name is sent to the emulation's file.

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/input.h>
#include <sys/ioctl.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace {

constexpr long kFuseSuperMagic = 0x65735546;
constexpr char kInputPrefix[] = "/dev/input/";
constexpr char kCalvPcie[] = "/proc/calv_pcie";
constexpr char kCalvPcieEmulated[] = "/run/cv084-emu/calv_pcie";

template <typename Fn> Fn next(char const* name) {
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

bool isEmulatedInput(int fd) {
    struct statfs fs {};
    if (fstatfs(fd, &fs) != 0 || fs.f_type != kFuseSuperMagic) {
        return false;
    }
    char link[64];
    char target[256];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    ssize_t n = readlink(link, target, sizeof target - 1);
    if (n <= 0) {
        return false;
    }
    target[n] = '\0';
    return std::strncmp(target, kInputPrefix, sizeof kInputPrefix - 1) == 0;
}

char const* redirect(char const* path) {
    return path != nullptr && std::strcmp(path, kCalvPcie) == 0 ? kCalvPcieEmulated : path;
}

bool needsMode(int flags) {
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

} // namespace

extern "C" {

int ioctl(int fd, unsigned long request, ...) {
    va_list ap;
    va_start(ap, request);
    void* arg = va_arg(ap, void*);
    va_end(ap);
    using Fn = int (*)(int, unsigned long, ...);
    static Fn real = next<Fn>("ioctl");
    if (request == EVIOCGRAB && isEmulatedInput(fd)) {
        int value = arg != nullptr ? 1 : 0;
        int result = real(fd, request, &value);
        if (result != 0 && errno == ENOSYS) {
            result = real(fd, value != 0 ? TIOCEXCL : TIOCNXCL, nullptr);
        }
        return result;
    }
    return real(fd, request, arg);
}

#define FPT_OPEN_WRAPPER(name)                                                                     \
    int name(char const* path, int flags, ...) {                                                   \
        mode_t mode = 0;                                                                           \
        if (needsMode(flags)) {                                                                    \
            va_list ap;                                                                            \
            va_start(ap, flags);                                                                   \
            mode = mode_t(va_arg(ap, int));                                                        \
            va_end(ap);                                                                            \
        }                                                                                          \
        using Fn = int (*)(char const*, int, ...);                                                 \
        static Fn real = next<Fn>(#name);                                                          \
        return real(redirect(path), flags, mode);                                                  \
    }

#define FPT_OPENAT_WRAPPER(name)                                                                   \
    int name(int dirfd, char const* path, int flags, ...) {                                        \
        mode_t mode = 0;                                                                           \
        if (needsMode(flags)) {                                                                    \
            va_list ap;                                                                            \
            va_start(ap, flags);                                                                   \
            mode = mode_t(va_arg(ap, int));                                                        \
            va_end(ap);                                                                            \
        }                                                                                          \
        using Fn = int (*)(int, char const*, int, ...);                                            \
        static Fn real = next<Fn>(#name);                                                          \
        return real(dirfd, redirect(path), flags, mode);                                           \
    }

FPT_OPEN_WRAPPER(open)
FPT_OPEN_WRAPPER(open64)
FPT_OPENAT_WRAPPER(openat)
FPT_OPENAT_WRAPPER(openat64)

int __open_2(char const* path, int flags) {
    using Fn = int (*)(char const*, int);
    static Fn real = next<Fn>("__open_2");
    return real(redirect(path), flags);
}

int __open64_2(char const* path, int flags) {
    using Fn = int (*)(char const*, int);
    static Fn real = next<Fn>("__open64_2");
    return real(redirect(path), flags);
}

FILE* fopen(char const* path, char const* mode) {
    using Fn = FILE* (*)(char const*, char const*);
    static Fn real = next<Fn>("fopen");
    return real(redirect(path), mode);
}

FILE* fopen64(char const* path, char const* mode) {
    using Fn = FILE* (*)(char const*, char const*);
    static Fn real = next<Fn>("fopen64");
    return real(redirect(path), mode);
}

} // extern "C"
