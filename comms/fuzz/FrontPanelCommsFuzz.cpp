// The panel is the board under test: whatever it sends, split however the
// line delivers it, every byte is counted and every complete line is
// dispatched once, in order, as soon as its newline is in; the rest of a line
// waits for the next read. Dispatch shows in the version texts, which take
// the last "V" and "F" line, in the jack state, which takes the number of
// the last "H" line (a plain decimal as it is, one without any digit as 0,
// "H" alone changes nothing), and in the report of each line the link does
// not know ("OK", "H..." and those two are known; empty lines are skipped).
#include "comms/FrontPanelComms.h"
#include "comms/fuzz/FeedThroughPipe.h"

#include <cstdlib>
#include <iostream>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace {

bool endsWith(std::string const& text, std::string const& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// What an "H" line's number must give, where that is certain.
std::optional<int32_t> jackState(std::string const& number) {
    static std::regex const plain("-?[1-9][0-9]{0,8}|0");
    if (std::regex_match(number, plain)) {
        return static_cast<int32_t>(std::strtol(number.c_str(), nullptr, 10));
    }
    if (number.find_first_of("0123456789") == std::string::npos) {
        return 0;
    }
    return std::nullopt;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    std::ostringstream reports;
    std::streambuf* const stderrBuffer = std::cerr.rdbuf(reports.rdbuf());
    FrontPanelComms link(QStringLiteral("/nonexistent"));
    QString version = link.version;
    QString fpgaVersion = link.fpgaVersion;
    std::optional<int32_t> jack = link.headphoneState;
    std::vector<std::string> unknown;
    size_t lineStart = 0;
    bool ok = true;
    feedThroughPipe(link, data, size, [&](std::string const& fed) {
        for (size_t end; (end = fed.find('\n', lineStart)) != std::string::npos;
             lineStart = end + 1) {
            std::string const line = fed.substr(lineStart, end - lineStart);
            QString const text = QString::fromLatin1(line.data(), static_cast<int>(line.size()));
            if (line.size() >= 2 && line[0] == 'H') {
                jack = jackState(line.substr(1));
            }
            if (line.empty() || line[0] == 'H' || line == "OK") {
                continue;
            }
            if (line[0] == 'V' || line[0] == 'F') {
                (line[0] == 'V' ? version : fpgaVersion) = text;
            } else {
                // Reported as UTF-8, up to the first NUL.
                unknown.emplace_back(text.toUtf8().constData());
            }
        }
        ok = ok && link.bytesReceived == fed.size() &&
             std::string(link.readQueue.begin(), link.readQueue.end()) == fed.substr(lineStart) &&
             link.version == version && link.fpgaVersion == fpgaVersion &&
             (!jack || link.headphoneState == *jack);
        jack = link.headphoneState;
    });
    std::cerr.rdbuf(stderrBuffer);
    std::istringstream lines(reports.str());
    size_t reported = 0;
    for (std::string report; ok && std::getline(lines, report); ++reported) {
        ok = reported < unknown.size() &&
             endsWith(report, '"' + unknown[reported] + "\" Unexpected");
    }
    if (!ok || reported != unknown.size()) {
        __builtin_trap();
    }
    return 0;
}
