#pragma once

// A single-threaded epoll loop with millisecond timers. Everything the
// emulated instrument does (FUSE requests, the panel's serial line, the
// control socket, register polling) runs on it, so no state needs a lock.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>

namespace emu {

class EventLoop {
public:
    using FdHandler = std::function<void(uint32_t events)>;
    using TimerFn = std::function<void()>;
    using TimerId = uint64_t;

    EventLoop();
    ~EventLoop();
    EventLoop(EventLoop const&) = delete;
    EventLoop& operator=(EventLoop const&) = delete;

    void watch(int fd, uint32_t events, FdHandler handler);
    void unwatch(int fd);
    TimerId after(int64_t ms, TimerFn fn);
    void cancel(TimerId id);
    void run();
    void stop() { running_ = false; }

    static int64_t nowMs();
    static int64_t nowUs();

private:
    struct Timer {
        TimerId id;
        TimerFn fn;
    };
    int epfd_ = -1;
    bool running_ = false;
    TimerId nextId_ = 1;
    std::map<int, std::shared_ptr<FdHandler>> fds_;
    std::multimap<int64_t, Timer> timers_;
};

} // namespace emu
