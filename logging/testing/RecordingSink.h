#pragma once

// A sink that keeps every formatted message in memory, and a scope that
// installs it as "VYLOG" so tests can check exactly what was logged.

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <spdlog/sinks/base_sink.h>
#include <spdlog/spdlog.h>

#include "logging/Logging.h"

namespace Calvento::testing {

class RecordingSink final : public spdlog::sinks::base_sink<std::mutex> {
public:
    std::vector<std::string> lines() {
        std::lock_guard<std::mutex> lock(mutex_);
        return lines_;
    }
    void clear() {
        std::lock_guard<std::mutex> lock(mutex_);
        lines_.clear();
    }

protected:
    void sink_it_(spdlog::details::log_msg const& msg) override {
        lines_.emplace_back(msg.payload.data(), msg.payload.size());
    }
    void flush_() override {}

private:
    std::vector<std::string> lines_;
};

// Registers "VYLOG" over a RecordingSink (level trace) for its lifetime.
class ScopedRecordingLogger {
public:
    ScopedRecordingLogger() : sink_(std::make_shared<RecordingSink>()) {
        spdlog::drop(kVyLogName);
        auto logger = std::make_shared<spdlog::logger>(kVyLogName, sink_);
        logger->set_level(spdlog::level::trace);
        spdlog::register_logger(logger);
    }
    ~ScopedRecordingLogger() { spdlog::drop(kVyLogName); }
    ScopedRecordingLogger(ScopedRecordingLogger const&) = delete;
    ScopedRecordingLogger& operator=(ScopedRecordingLogger const&) = delete;

    std::vector<std::string> lines() { return sink_->lines(); }
    void clear() { sink_->clear(); }

private:
    std::shared_ptr<RecordingSink> sink_;
};

} // namespace Calvento::testing
