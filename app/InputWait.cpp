#include "app/InputWait.h"

#include <cerrno>

bool InputWait::operator()(int32_t milliseconds, Descriptors const& fds) const {
    Clock::time_point const deadline = now() + std::chrono::milliseconds(milliseconds);
    std::array<pollfd, std::tuple_size<Descriptors>::value> polled{};
    for (std::size_t i = 0; i < polled.size(); ++i)
        polled[i] = pollfd{fds[i], POLLIN, 0};
    bool watching = true;
    for (;;) {
        // Rounded up: a wait cut to whole milliseconds must not end early and
        // come round again for the rest.
        auto const left = std::chrono::ceil<std::chrono::milliseconds>(deadline - now()).count();
        if (left <= 0)
            return false;
        int const ready = poll(watching ? polled.data() : nullptr, watching ? polled.size() : 0,
                               static_cast<int>(left));
        if (ready > 0) {
            bool broken = false;
            for (pollfd const& p : polled)
                broken = broken || (p.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
            if (!broken)
                return true;
            watching = false;
        } else if (ready < 0 && errno != EINTR) {
            watching = false;
        }
    }
}
