#pragma once

// Captures what the code under test writes to Qt's debug channel: every
// debug-level message of the "default" category, in order. Anything else
// (Qt's own categorised warnings) is passed through to stderr untouched.

#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

#include <QString>
#include <QtGlobal>

namespace uploadtest {

class DebugMessages {
public:
    DebugMessages() {
        std::lock_guard<std::mutex> lock(mutex());
        active() = this;
        previous_ = qInstallMessageHandler(&DebugMessages::handle);
    }
    ~DebugMessages() {
        std::lock_guard<std::mutex> lock(mutex());
        qInstallMessageHandler(previous_);
        active() = nullptr;
    }
    DebugMessages(DebugMessages const&) = delete;
    DebugMessages& operator=(DebugMessages const&) = delete;

    std::vector<std::string> lines() {
        std::lock_guard<std::mutex> lock(mutex());
        return lines_;
    }
    // Messages of the default category at any level other than debug; the
    // upload must never write those.
    std::vector<std::string> others() {
        std::lock_guard<std::mutex> lock(mutex());
        return others_;
    }

private:
    static void handle(QtMsgType type, QMessageLogContext const& context, QString const& text) {
        std::lock_guard<std::mutex> lock(mutex());
        DebugMessages* self = active();
        bool const defaultCategory =
            context.category != nullptr && std::string(context.category) == "default";
        if (self != nullptr && defaultCategory) {
            (type == QtDebugMsg ? self->lines_ : self->others_).push_back(text.toStdString());
            return;
        }
        std::fprintf(stderr, "%s\n", qPrintable(text));
    }
    static std::mutex& mutex() {
        static std::mutex m;
        return m;
    }
    static DebugMessages*& active() {
        static DebugMessages* current = nullptr;
        return current;
    }

    QtMessageHandler previous_ = nullptr;
    std::vector<std::string> lines_;
    std::vector<std::string> others_;
};

// The lines every failed upload ends with, after one attempt's own message
// per attempt: "retrying" after each, "aborting" after the last.
inline std::vector<std::string> failedUploadLines(std::string const& attemptLine) {
    std::vector<std::string> lines;
    for (int i = 0; i < 3; ++i) {
        lines.push_back(attemptLine);
        lines.push_back("nexusUpload() failed - retrying");
    }
    lines.push_back("nexusUpload() failed - aborting");
    return lines;
}

} // namespace uploadtest
