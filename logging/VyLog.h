#pragma once

// The platform layer's way into "VYLOG": look the logger up at the point of
// use and say nothing when it is absent (before initLogging, after
// ceaseLogging, or in a unit test that did not register one).

#include <memory>
#include <utility>

#include <spdlog/spdlog.h>

#include "logging/Logging.h"

namespace Calvento {

inline std::shared_ptr<spdlog::logger> vyLogger() {
    return spdlog::get(kVyLogName);
}

template <typename... Args>
void vyLog(spdlog::level::level_enum level, spdlog::format_string_t<Args...> format,
           Args&&... args) {
    if (auto logger = vyLogger()) {
        logger->log(level, format, std::forward<Args>(args)...);
    }
}

template <typename... Args>
void vyLogError(spdlog::format_string_t<Args...> format, Args&&... args) {
    vyLog(spdlog::level::err, format, std::forward<Args>(args)...);
}

template <typename... Args>
void vyLogInfo(spdlog::format_string_t<Args...> format, Args&&... args) {
    vyLog(spdlog::level::info, format, std::forward<Args>(args)...);
}

template <typename... Args>
void vyLogDebug(spdlog::format_string_t<Args...> format, Args&&... args) {
    vyLog(spdlog::level::debug, format, std::forward<Args>(args)...);
}

} // namespace Calvento
