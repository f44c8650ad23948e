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

#include <gtest/gtest.h>

namespace links_test {

// read() calls made by this thread so far, from the kernel's per-task I/O
// accounting; taking a reading costs one read() itself. A read on a
// descriptor that is not open is refused before it is counted.
inline int64_t threadReadSyscalls() {
    const int procFd = ::open("/proc/thread-self/io", O_RDONLY | O_CLOEXEC);
    if (procFd < 0) {
        return -1;
    }
    char text[1024] = {};
    const ssize_t n = ::read(procFd, text, sizeof text - 1);
    ::close(procFd);
    const char* field = n <= 0 ? nullptr : std::strstr(text, "syscr:");
    return field == nullptr ? -1 : std::strtoll(field + 6, nullptr, 10);
}

// How many read() calls `action` made on this thread.
template <typename Action> int64_t countReadSyscalls(Action&& action) {
    const int64_t a = threadReadSyscalls();
    const int64_t b = threadReadSyscalls();
    action();
    const int64_t c = threadReadSyscalls();
    return (a < 0 || b < 0 || c < 0) ? -1 : (c - b) - (b - a);
}

inline volatile std::sig_atomic_t watchdogFired = 0;
inline void onWatchdog(int) {
    watchdogFired = 1;
}

// Runs `action` under a SIGALRM watchdog without SA_RESTART, so a blocking
// read is interrupted instead of hanging the test; false if it had to fire.
template <typename Action> bool returnsWithoutWaiting(Action&& action) {
    struct sigaction handler {};
    struct sigaction previous {};
    handler.sa_handler = onWatchdog;
    sigemptyset(&handler.sa_mask);
    ::sigaction(SIGALRM, &handler, &previous);
    watchdogFired = 0;
    ::alarm(5);
    action();
    ::alarm(0);
    ::sigaction(SIGALRM, &previous, nullptr);
    return watchdogFired == 0;
}

// An idle poll returns at once after exactly one read(): a read that waits is
// caught by the watchdog; a second read, or a retry, shows up in the count.
template <typename Comms> void expectIdlePollIsOneRead(Comms& comms) {
    bool result = false;
    int64_t reads = -1;
    EXPECT_TRUE(returnsWithoutWaiting(
        [&] { reads = countReadSyscalls([&] { result = comms.servicePort(); }); }));
    EXPECT_EQ(reads, 1);
    EXPECT_TRUE(result);
    EXPECT_EQ(comms.bytesReceived, 0u);
    EXPECT_TRUE(comms.readQueue.empty());
}

inline int openDescriptorCount() {
    int count = 0;
    for (int candidate = 0; candidate < 1024; ++candidate) {
        count += ::fcntl(candidate, F_GETFD) != -1;
    }
    return count;
}

inline bool isOpenDescriptor(int fd) {
    return ::fcntl(fd, F_GETFD) != -1 || errno != EBADF;
}

inline std::string errnoText(char const* prefix, int error) {
    return std::string(prefix) + ": " + std::strerror(error) + "\n";
}

// An empty regular file under /tmp, removed when the object goes.
struct TempFile {
    char path[32] = "/tmp/fpt_cv084_XXXXXX";
    bool ok;
    TempFile() {
        const int made = ::mkstemp(path);
        ok = made >= 0;
        if (ok) {
            ::close(made);
        }
    }
    ~TempFile() { ::unlink(path); }
};

} // namespace links_test
