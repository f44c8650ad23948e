#pragma once

// Feeds a fuzz input to a link through a real descriptor, the way the device
// delivers it: each chunk starts with a length byte, is written to a
// non-blocking pipe and then drained by one servicePort().

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <unistd.h>

template <typename Link> size_t feedThroughPipe(Link& link, uint8_t const* data, size_t size) {
    int ends[2];
    if (::pipe2(ends, O_NONBLOCK) != 0) {
        return 0;
    }
    link.fd = ends[0]; // closed by the link
    size_t fed = 0;
    for (size_t pos = 0; pos < size;) {
        size_t const chunk = std::min<size_t>(data[pos], size - pos - 1);
        ++pos;
        fed += static_cast<size_t>(std::max<ssize_t>(0, ::write(ends[1], data + pos, chunk)));
        pos += chunk;
        link.servicePort();
    }
    ::close(ends[1]);
    return fed;
}
