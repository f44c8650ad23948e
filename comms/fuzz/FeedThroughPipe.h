#pragma once

// Feeds a fuzz input to a link through a real descriptor, the way the device
// delivers it: each chunk starts with a length byte, is written to a
// non-blocking pipe and then drained by one servicePort(), after which
// afterPoll is given every byte written so far.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <string>
#include <unistd.h>

template <typename Link, typename AfterPoll>
void feedThroughPipe(Link& link, uint8_t const* data, size_t size, AfterPoll&& afterPoll) {
    int ends[2];
    if (::pipe2(ends, O_NONBLOCK) != 0) {
        return;
    }
    link.fd = ends[0]; // closed by the link
    std::string fed;
    for (size_t pos = 0; pos < size;) {
        size_t const chunk = std::min<size_t>(data[pos], size - pos - 1);
        ++pos;
        ssize_t const written = ::write(ends[1], data + pos, chunk);
        fed.append(reinterpret_cast<char const*>(data + pos),
                   static_cast<size_t>(std::max<ssize_t>(0, written)));
        pos += chunk;
        link.servicePort();
        afterPoll(fed);
    }
    ::close(ends[1]);
}
