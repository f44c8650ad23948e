#include "app/ConsoleDiversion.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Every signal whose default action ends the process with a core dump: the
// faults, abort(), and Ctrl-\ (SIGQUIT), which curses leaves to the terminal.
constexpr std::array<int, 8> kCrashSignals{
    {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGQUIT, SIGILL, SIGTRAP, SIGSYS}};

// The diversion a crash puts back: one at a time, the one whose screen is up.
ConsoleDiversion* g_active = nullptr;
struct sigaction g_previousActions[kCrashSignals.size()];
std::terminate_handler g_previousTerminate = nullptr;

void writeAll(int fd, char const* data, ssize_t size) {
    while (size > 0) {
        ssize_t const n = ::write(fd, data, static_cast<size_t>(size));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return;
        data += n;
        size -= n;
    }
}

// Copies a held file from its start to `to`; true if it held anything.
// Safe in a signal handler.
bool passOn(int held, int to) {
    if (::lseek(held, 0, SEEK_SET) != 0)
        return false;
    bool any = false;
    char buffer[4096];
    ssize_t n;
    while ((n = ::read(held, buffer, sizeof buffer)) > 0 || (n < 0 && errno == EINTR)) {
        writeAll(to, buffer, n > 0 ? n : 0);
        any = any || n > 0;
    }
    return any;
}

// A file in memory that writes are appended to: forward() empties it.
int openHeldFile() {
    int const fd = ::memfd_create("diagnostics", MFD_CLOEXEC);
    if (fd >= 0 && ::fcntl(fd, F_SETFL, O_APPEND) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

bool sameFile(int a, int b) {
    struct stat sa {};
    struct stat sb {};
    return ::fstat(a, &sa) == 0 && ::fstat(b, &sb) == 0 && sa.st_dev == sb.st_dev &&
           sa.st_ino == sb.st_ino;
}

} // namespace

ConsoleDiversion::ConsoleDiversion() {
    std::fflush(stdout);
    std::fflush(stderr);
    for (Stream& stream : m_streams) {
        Stream const& first = m_streams[0];
        int const original = ::fcntl(stream.fd, F_DUPFD_CLOEXEC, 3);
        bool const shared =
            &stream != &first && first.held >= 0 && sameFile(first.original, original);
        int const held = shared ? -1 : openHeldFile();
        int const into = shared ? first.fd : held;
        if (original < 0 || into < 0 || ::dup2(into, stream.fd) < 0) {
            // Left as it was: visible, if untidy.
            for (int fd : {original, held})
                if (fd >= 0)
                    ::close(fd);
            continue;
        }
        stream.original = original;
        stream.held = held;
    }
    // The terminal's mode as the shell left it, before the screen changes it.
    m_terminalModeSaved = ::tcgetattr(terminalFd(), &m_terminalMode) == 0;

    g_active = this;
    struct sigaction action {};
    action.sa_handler = onCrash;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESETHAND; // the second delivery takes its default course
    for (size_t i = 0; i < kCrashSignals.size(); ++i)
        ::sigaction(kCrashSignals[i], &action, &g_previousActions[i]);
    g_previousTerminate = std::set_terminate(onTerminate);
}

ConsoleDiversion::~ConsoleDiversion() {
    std::set_terminate(g_previousTerminate);
    for (size_t i = 0; i < kCrashSignals.size(); ++i)
        ::sigaction(kCrashSignals[i], &g_previousActions[i], nullptr);
    g_active = nullptr;
    std::fflush(stdout);
    std::fflush(stderr);
    for (Stream& stream : m_streams)
        restore(stream);
}

void ConsoleDiversion::restore(Stream& stream) {
    if (stream.original < 0)
        return;
    // New writes go straight to the stream; what is left is passed on.
    ::dup2(stream.original, stream.fd);
    if (stream.held >= 0) {
        passOn(stream.held, stream.fd);
        ::close(stream.held);
    }
    ::close(stream.original);
}

bool ConsoleDiversion::forward() {
    std::fflush(stdout);
    std::fflush(stderr);
    bool any = false;
    for (Stream const& stream : m_streams) {
        if (stream.held >= 0 && passOn(stream.held, stream.original)) {
            any = true;
            ::ftruncate(stream.held, 0);
        }
    }
    return any;
}

void ConsoleDiversion::putBackAfterCrash() const {
    int const terminal = terminalFd();
    writeAll(terminal, m_screenReset.data(), static_cast<ssize_t>(m_screenReset.size()));
    if (m_terminalModeSaved)
        ::tcsetattr(terminal, TCSANOW, &m_terminalMode);
    for (Stream const& stream : m_streams)
        if (stream.held >= 0)
            passOn(stream.held, stream.original);
}

void ConsoleDiversion::onCrash(int signalNumber) {
    if (ConsoleDiversion const* diversion = g_active) {
        g_active = nullptr;
        diversion->putBackAfterCrash();
    }
    // Blocked until the handler returns, then ends the process as it would
    // have without the handler (SA_RESETHAND).
    std::raise(signalNumber);
}

void ConsoleDiversion::onTerminate() {
    // Outside a signal handler: stdio may still be used. What waits in the
    // output buffer joins what is held; the handler before ours (the standard
    // library's report of the exception) then aborts.
    std::fflush(stdout);
    if (g_previousTerminate != nullptr)
        g_previousTerminate();
    std::abort();
}
