#pragma once

// Reads the operator's terminal on a thread of its own and stamps each byte
// the moment the kernel hands it over. The run loop may be drawing a frame or
// serving the panel when a key comes; stamped only when the loop got round
// to reading it, a key typed just before a knob detent would look as if it
// came after it. The loop takes the stamped bytes in when it is ready, woken
// through wakeFd().

#include <atomic>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>

class TerminalReader {
public:
    struct Byte {
        char byte;
        int64_t arrivedUs; // comms::arrivalClockUs()
    };

    // Starts reading fd (not owned; it stays open while the reader lives).
    explicit TerminalReader(int fd);
    ~TerminalReader();
    TerminalReader(TerminalReader const&) = delete;
    TerminalReader& operator=(TerminalReader const&) = delete;

    // Readable while stamped bytes wait, or once the input has ended.
    int wakeFd() const { return m_wake[0]; }
    // Moves the bytes read so far to the end of into; false once the input
    // has hung up or failed and everything read before has been handed over.
    bool takeInto(std::deque<Byte>& into);

private:
    void run();
    void wakeLoop();

    int const m_fd;
    int m_wake[2] = {-1, -1};
    int m_stop[2] = {-1, -1};
    std::mutex m_mutex;
    std::deque<Byte> m_read; // guarded by m_mutex
    std::atomic<bool> m_ended{false};
    std::thread m_thread;
};
