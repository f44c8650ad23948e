#include "logging/Logging.h"

#include <memory>
#include <string>
#include <syslog.h>
#include <vector>

#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/sinks/syslog_sink.h>
#include <spdlog/spdlog.h>

namespace Calvento {

void initLogging(bool toStdout, char const* directory) {
    // The directory is only a prefix of the syslog tag; no file is opened.
    std::string ident = directory ? directory : "";
    ident += "vyapp";

    std::vector<spdlog::sink_ptr> sinks;
    if (toStdout) {
        sinks.push_back(std::make_shared<spdlog::sinks::stdout_sink_mt>());
    }
    sinks.push_back(std::make_shared<spdlog::sinks::syslog_sink_mt>(ident, 0, LOG_USER, true));

    auto logger = std::make_shared<spdlog::logger>(kVyLogName, sinks.begin(), sinks.end());
    spdlog::register_logger(logger);
    logger->set_pattern("[%C/%m/%d][tid:%t][%L]> %v");
}

void ceaseLogging() {
    spdlog::drop(kVyLogName);
    spdlog::drop_all();
}

} // namespace Calvento
