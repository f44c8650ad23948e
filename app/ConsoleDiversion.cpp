#include "app/ConsoleDiversion.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace {

// Room for a long burst of diagnostics while the program waits in a screen
// that is not repainted (the serial number entry): a full pipe would stall
// the writer.
constexpr int kPipeBytes = 1 << 20;

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

} // namespace

ConsoleDiversion::ConsoleDiversion() {
    std::fflush(stdout);
    std::fflush(stderr);
    for (Stream& stream : m_streams) {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0)
            continue; // left as it was: visible, if untidy
        ::fcntl(ends[0], F_SETFL, O_NONBLOCK);
        ::fcntl(ends[1], F_SETPIPE_SZ, kPipeBytes);
        stream.original = ::fcntl(stream.fd, F_DUPFD_CLOEXEC, 3);
        if (stream.original < 0 || ::dup2(ends[1], stream.fd) < 0) {
            ::close(ends[0]);
            ends[0] = -1;
        }
        ::close(ends[1]);
        stream.pipeRead = ends[0];
    }
}

ConsoleDiversion::~ConsoleDiversion() {
    std::fflush(stdout);
    std::fflush(stderr);
    for (Stream& stream : m_streams)
        restore(stream);
}

void ConsoleDiversion::restore(Stream& stream) {
    if (stream.pipeRead >= 0) {
        // The write end goes with the dup2 below; what is left is read to the end.
        ::dup2(stream.original, stream.fd);
        char buffer[4096];
        ssize_t n;
        while ((n = ::read(stream.pipeRead, buffer, sizeof buffer)) > 0 ||
               (n < 0 && errno == EINTR))
            writeAll(stream.fd, buffer, n > 0 ? n : 0);
        ::close(stream.pipeRead);
    }
    if (stream.original >= 0)
        ::close(stream.original);
}

bool ConsoleDiversion::forward() {
    std::fflush(stdout);
    std::fflush(stderr);
    bool any = false;
    for (Stream const& stream : m_streams) {
        if (stream.pipeRead < 0)
            continue;
        char buffer[4096];
        ssize_t n;
        while ((n = ::read(stream.pipeRead, buffer, sizeof buffer)) > 0) {
            writeAll(stream.original, buffer, n);
            any = true;
        }
    }
    return any;
}
