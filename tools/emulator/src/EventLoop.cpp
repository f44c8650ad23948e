#include "EventLoop.h"

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <sys/epoll.h>
#include <unistd.h>
#include <vector>

namespace emu {

EventLoop::EventLoop() : epfd_(epoll_create1(EPOLL_CLOEXEC)) {}

EventLoop::~EventLoop() {
    if (epfd_ >= 0) {
        close(epfd_);
    }
}

int64_t EventLoop::nowUs() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return int64_t(ts.tv_sec) * 1000000 + ts.tv_nsec / 1000;
}

int64_t EventLoop::nowMs() {
    return nowUs() / 1000;
}

void EventLoop::watch(int fd, uint32_t events, FdHandler handler) {
    epoll_event ev{};
    ev.events = events;
    ev.data.fd = fd;
    if (fds_.count(fd) != 0) {
        epoll_ctl(epfd_, EPOLL_CTL_MOD, fd, &ev);
    } else if (epoll_ctl(epfd_, EPOLL_CTL_ADD, fd, &ev) != 0) {
        perror("emulator: epoll_ctl");
        return;
    }
    fds_[fd] = std::make_shared<FdHandler>(std::move(handler));
}

void EventLoop::unwatch(int fd) {
    if (fds_.erase(fd) != 0) {
        epoll_ctl(epfd_, EPOLL_CTL_DEL, fd, nullptr);
    }
}

EventLoop::TimerId EventLoop::after(int64_t ms, TimerFn fn) {
    TimerId id = nextId_++;
    timers_.emplace(nowMs() + ms, Timer{id, std::move(fn)});
    return id;
}

void EventLoop::cancel(TimerId id) {
    for (auto it = timers_.begin(); it != timers_.end(); ++it) {
        if (it->second.id == id) {
            timers_.erase(it);
            return;
        }
    }
}

void EventLoop::run() {
    running_ = true;
    std::vector<epoll_event> events(32);
    while (running_) {
        int timeout = -1;
        if (!timers_.empty()) {
            int64_t wait = timers_.begin()->first - nowMs();
            timeout = wait < 0 ? 0 : int(wait);
        }
        int n = epoll_wait(epfd_, events.data(), int(events.size()), timeout);
        if (n < 0 && errno != EINTR) {
            perror("emulator: epoll_wait");
            return;
        }
        for (int i = 0; i < n && running_; ++i) {
            auto it = fds_.find(events[size_t(i)].data.fd);
            if (it != fds_.end()) {
                auto handler = it->second; // survives an unwatch() from inside
                (*handler)(events[size_t(i)].events);
            }
        }
        int64_t now = nowMs();
        while (running_ && !timers_.empty() && timers_.begin()->first <= now) {
            TimerFn fn = std::move(timers_.begin()->second.fn);
            timers_.erase(timers_.begin());
            fn();
        }
    }
}

} // namespace emu
