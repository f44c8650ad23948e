#pragma once

// "VYLOG" over an in-memory sink for as long as the object lives, so that a
// test can check exactly which messages the platform layer logged.

#include <memory>
#include <string>
#include <vector>

#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/ringbuffer_sink.h>
#include <spdlog/spdlog.h>

#include "logging/Logging.h"

namespace Calvento::testing {

class ScopedRecordingLogger {
public:
    ScopedRecordingLogger() { clear(); }
    ~ScopedRecordingLogger() { spdlog::drop(kVyLogName); }

    // The messages' texts, oldest first (at most the last 10000).
    std::vector<std::string> lines() { return sink_->last_formatted(); }

    // Starts a new record: callers look "VYLOG" up at each use.
    void clear() {
        spdlog::drop(kVyLogName);
        sink_ = std::make_shared<spdlog::sinks::ringbuffer_sink_mt>(10000);
        sink_->set_formatter(std::make_unique<spdlog::pattern_formatter>(
            "%v", spdlog::pattern_time_type::local, std::string()));
        auto logger = std::make_shared<spdlog::logger>(kVyLogName, sink_);
        logger->set_level(spdlog::level::trace);
        spdlog::register_logger(logger);
    }

private:
    std::shared_ptr<spdlog::sinks::ringbuffer_sink_mt> sink_;
};

} // namespace Calvento::testing
