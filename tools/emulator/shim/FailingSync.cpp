// Preloaded into front_panel_test by the end-to-end fault tests: its fsync()
// or fdatasync() fails with EIO, as a disk going bad answers when the data
// cannot be made durable. CV084_FAILING_SYNC names the call ("fsync" or
// "fdatasync"); every other call, and these when not named, go to the C
// library. CV084_SYNC_DELAY_MS=N makes every sync first take N ms, as a slow
// disk does, so that a test can strike while the results are being written.
// Only these two are wrapped: a preload that wraps malloc, poll and
// the rest of POSIX (libfiu's) stalls the program's network threads now and
// then.

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <unistd.h>

namespace {

using SyncCall = int (*)(int);

bool failing(char const* call) {
    char const* named = std::getenv("CV084_FAILING_SYNC");
    return named != nullptr && std::strcmp(named, call) == 0;
}

int syncOrFail(char const* call, int fd) {
    if (char const* delay = std::getenv("CV084_SYNC_DELAY_MS"))
        ::usleep(static_cast<useconds_t>(std::atoi(delay)) * 1000);
    if (failing(call)) {
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
