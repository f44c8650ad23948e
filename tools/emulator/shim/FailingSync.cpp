// Preloaded into front_panel_test by the end-to-end fault tests: its fsync()
// or fdatasync() fails with EIO, as a disk going bad answers when the data
// cannot be made durable, and so may its ftruncate(). CV084_FAILING_SYNC names
// the calls, separated by commas ("fsync", "fdatasync", "ftruncate", or
// "fsync-file": fsync of a file, not of a folder); every other call, and
// these when not named, go to the C library. CV084_SYNC_DELAY_MS=N makes every sync first take N
// ms, as a slow disk does, so that a test can strike while the results are being written. Only
// these are wrapped: a preload that wraps malloc, poll and the rest of POSIX (libfiu's) stalls
// the program's network threads now and then.

// Both names are wrapped, each on its own: with 64-bit offsets asked for,
// the headers would make ftruncate a second name for ftruncate64.
#undef _FILE_OFFSET_BITS

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using SyncCall = int (*)(int);

bool failing(char const* call) {
    char const* named = std::getenv("CV084_FAILING_SYNC");
    std::size_t const length = std::strlen(call);
    for (char const* at = named; at != nullptr && *at != '\0';) {
        char const* const comma = std::strchr(at, ',');
        std::size_t const size =
            comma != nullptr ? static_cast<std::size_t>(comma - at) : std::strlen(at);
        if (size == length && std::strncmp(at, call, length) == 0)
            return true;
        at = comma != nullptr ? comma + 1 : nullptr;
    }
    return false;
}

template <class Length> int truncateOrFail(char const* call, int fd, Length length) {
    if (failing("ftruncate")) {
        errno = EIO;
        return -1;
    }
    auto const real = reinterpret_cast<int (*)(int, Length)>(dlsym(RTLD_NEXT, call));
    return real(fd, length);
}

int syncOrFail(char const* call, int fd) {
    if (char const* delay = std::getenv("CV084_SYNC_DELAY_MS"))
        ::usleep(static_cast<useconds_t>(std::atoi(delay)) * 1000);
    struct stat st {};
    bool const file = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
    if (failing(call) || (file && std::strcmp(call, "fsync") == 0 && failing("fsync-file"))) {
        errno = EIO;
        return -1;
    }
    auto const real = reinterpret_cast<SyncCall>(dlsym(RTLD_NEXT, call));
    return real(fd);
}

} // namespace

extern "C" int fsync(int fd) {
    return syncOrFail("fsync", fd);
}

extern "C" int fdatasync(int fd) {
    return syncOrFail("fdatasync", fd);
}

// The 32-bit programs call ftruncate64 for their 64-bit file offsets.
extern "C" int ftruncate(int fd, off_t length) {
    return truncateOrFail("ftruncate", fd, length);
}

extern "C" int ftruncate64(int fd, off64_t length) {
    return truncateOrFail("ftruncate64", fd, length);
}
