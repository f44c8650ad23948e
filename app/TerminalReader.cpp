#include "app/TerminalReader.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include "comms/PolledRead.h"

TerminalReader::TerminalReader(int fd) : m_fd(fd) {
    if (::pipe2(m_wake, O_CLOEXEC | O_NONBLOCK) != 0 || ::pipe2(m_stop, O_CLOEXEC) != 0) {
        // Without its pipes the reader cannot run: the input reads as ended.
        m_ended = true;
        return;
    }
    // Signals are the run loop's to take (the termination self-pipe, the
    // crash handler's terminal reset): the thread is started with them
    // blocked and keeps that mask.
    sigset_t all;
    sigset_t previous;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous);
    m_thread = std::thread([this] { run(); });
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

TerminalReader::~TerminalReader() {
    if (m_thread.joinable()) {
        char const stop = 0;
        while (::write(m_stop[1], &stop, 1) < 0 && errno == EINTR) {
        }
        m_thread.join();
    }
    for (int fd : {m_wake[0], m_wake[1], m_stop[0], m_stop[1]})
        if (fd >= 0)
            ::close(fd);
}

void TerminalReader::run() {
    for (;;) {
        pollfd fds[2] = {{m_fd, POLLIN, 0}, {m_stop[0], POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR)
                continue;
            break;
        }
        if (fds[1].revents != 0)
            return;
        char buffer[64];
        ssize_t const count = ::read(m_fd, buffer, sizeof buffer);
        int64_t const now = comms::arrivalClockUs();
        if (count < 0 && (errno == EINTR || errno == EAGAIN))
            continue;
        if (count <= 0)
            break; // hung up: it would read as ready for ever
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            for (ssize_t i = 0; i < count; ++i)
                m_read.push_back({buffer[i], now});
        }
        wakeLoop();
    }
    m_ended = true;
    wakeLoop();
}

void TerminalReader::wakeLoop() {
    // One byte is enough; a full pipe already wakes the loop.
    char const wake = 0;
    while (::write(m_wake[1], &wake, 1) < 0 && errno == EINTR) {
    }
}

bool TerminalReader::takeInto(std::deque<Byte>& into) {
    // Emptied before the bytes are moved: a byte read meanwhile leaves its
    // wake-up behind, and at worst the loop wakes once for nothing.
    char drain[64];
    while (m_wake[0] >= 0 && ::read(m_wake[0], drain, sizeof drain) > 0) {
    }
    bool const ended = m_ended;
    std::lock_guard<std::mutex> lock(m_mutex);
    into.insert(into.end(), m_read.begin(), m_read.end());
    m_read.clear();
    return !ended;
}
