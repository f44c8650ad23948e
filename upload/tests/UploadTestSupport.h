#pragma once

// What both upload test programs share: the debug-channel capture, the lines
// of a failed upload, file helpers.

#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QtGlobal>

namespace uploadtest {

// Every message of the "default" category (the upload's own) while it lives;
// Qt's categorised messages go on to stderr.
class DebugMessages {
public:
    DebugMessages() {
        lines_.clear();
        previous_ = qInstallMessageHandler(&handle);
    }
    ~DebugMessages() { qInstallMessageHandler(previous_); }
    std::vector<std::string> lines() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return lines_;
    }

private:
    static void handle(QtMsgType, QMessageLogContext const& context, QString const& text) {
        if (context.category != nullptr && std::string(context.category) == "default") {
            std::lock_guard<std::mutex> lock(mutex_);
            lines_.push_back(text.toStdString());
        } else {
            std::fprintf(stderr, "%s\n", qPrintable(text));
        }
    }
    static inline std::mutex mutex_;
    static inline std::vector<std::string> lines_;
    QtMessageHandler previous_ = nullptr;
};

// One attempt's own line per attempt, each followed by "retrying", and
// "aborting" after the last.
inline std::vector<std::string> failedUploadLines(std::string const& attemptLine) {
    std::vector<std::string> lines;
    for (int i = 0; i < 3; ++i) {
        lines.insert(lines.end(), {attemptLine, "nexusUpload() failed - retrying"});
    }
    lines.push_back("nexusUpload() failed - aborting");
    return lines;
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
