#pragma once

// Shared by the serial-link and input-device tests.

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace links_test {

// Number of read() system calls this thread has made so far, from the
// kernel's per-task I/O accounting. Taking a reading costs a fixed number of
// read() calls itself (one), so callers compare differences of differences.
// The kernel counts reads that reach a file; a read on a descriptor that is
// not open is refused before it is counted.
inline int64_t threadReadSyscalls() {
    const int procFd = ::open("/proc/thread-self/io", O_RDONLY | O_CLOEXEC);
    if (procFd < 0) {
        return -1;
    }
    char text[1024] = {};
    const ssize_t n = ::read(procFd, text, sizeof text - 1);
    ::close(procFd);
    if (n <= 0) {
        return -1;
    }
    const char* field = std::strstr(text, "syscr:");
    return field == nullptr ? -1 : std::strtoll(field + 6, nullptr, 10);
}

// Runs `action` and returns how many read() calls it made on this thread.
template <typename Action> int64_t countReadSyscalls(Action&& action) {
    const int64_t a = threadReadSyscalls();
    const int64_t b = threadReadSyscalls();
    action();
    const int64_t c = threadReadSyscalls();
    if (a < 0 || b < 0 || c < 0) {
        return -1;
    }
    return (c - b) - (b - a);
}

inline volatile std::sig_atomic_t watchdogFired = 0;
inline void onWatchdog(int) {
    watchdogFired = 1;
}

// Runs `action` under a SIGALRM watchdog installed without SA_RESTART, so a
// read that blocks is interrupted instead of hanging the test. Returns false
// if the watchdog had to fire. The limit is generous: it only tells "returns
// at once" from "waits for data that never comes".
template <typename Action> bool returnsWithoutWaiting(Action&& action) {
    struct sigaction handler {};
    struct sigaction previous {};
    handler.sa_handler = onWatchdog;
    sigemptyset(&handler.sa_mask);
    handler.sa_flags = 0;
    ::sigaction(SIGALRM, &handler, &previous);
    watchdogFired = 0;
    ::alarm(5);
    action();
    ::alarm(0);
    ::sigaction(SIGALRM, &previous, nullptr);
    return watchdogFired == 0;
}

// Number of descriptors open in this process.
inline int openDescriptorCount() {
    int count = 0;
    for (int candidate = 0; candidate < 1024; ++candidate) {
        if (::fcntl(candidate, F_GETFD) != -1) {
            ++count;
        }
    }
    return count;
}

inline bool isOpenDescriptor(int fd) {
    return ::fcntl(fd, F_GETFD) != -1 || errno != EBADF;
}

} // namespace links_test
