#pragma once

// What both upload test programs share: the code under test, the
// debug-channel capture, the lines of a failed upload, file helpers.

#include "upload/NexusUpload.h"
#include "upload/ProductionArtifactsNexusRepo.h"

#include <mutex>
#include <string>
#include <vector>

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace uploadtest {

// Every message of the "default" category (the upload's own) while it lives.
class DebugMessages {
public:
    DebugMessages() {
        std::lock_guard<std::mutex> lock(mutex_);
        lines_.clear();
        qInstallMessageHandler(&handle);
    }
    ~DebugMessages() { qInstallMessageHandler(nullptr); }
    std::vector<std::string> lines() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return lines_;
    }

private:
    static void handle(QtMsgType, QMessageLogContext const& context, QString const& text) {
        std::lock_guard<std::mutex> lock(mutex_);
        if (context.category != nullptr && std::string(context.category) == "default") {
            lines_.push_back(text.toStdString());
        }
    }
    static inline std::mutex mutex_;
    static inline std::vector<std::string> lines_;
};

// One attempt's own line per attempt, each followed by "retrying", and
// "aborting" after the last.
inline std::vector<std::string> failedUploadLines(std::string const& attemptLine) {
    std::string const retry = "nexusUpload() failed - retrying";
    std::string const abort = "nexusUpload() failed - aborting";
    return {attemptLine, retry, attemptLine, retry, attemptLine, retry, abort};
}

inline QByteArray readFile(QString const& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

inline bool writeFile(QString const& path, QByteArray const& content) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

} // namespace uploadtest
