#pragma once

// What both upload test programs share: the debug-channel capture, the
// expected failure lines, the provisioned credential and the key check.

#include "upload/NexusUpload.h"

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QtGlobal>

#include <gtest/gtest.h>

namespace uploadtest {

// Captures what the code under test writes to Qt's debug channel: every
// debug-level message of the "default" category, in order. Anything else
// (Qt's own categorised warnings) is passed through to stderr untouched.

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

// The file's content, empty if it cannot be read.
inline QByteArray readFile(QString const& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

inline void writeFile(QString const& path, QByteArray const& content) {
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly)) << path.toStdString();
    file.write(content);
}

// The credential this build was provisioned with, as the server compares it.
inline QByteArray provisionedCredential() {
    QByteArray credential = readFile(QStringLiteral(FPT_TEST_CREDENTIAL_FILE));
    if (credential.endsWith('\n')) {
        credential.chop(1);
    }
    if (credential.endsWith('\r')) {
        credential.chop(1);
    }
    return credential;
}

inline bool keysWiped(NexusUpload const& uploader) {
    auto const zero = [](auto b) { return b == 0; };
    return std::all_of(uploader.currentKey().begin(), uploader.currentKey().end(), zero) &&
           std::all_of(uploader.currentIv().begin(), uploader.currentIv().end(), zero);
}

} // namespace uploadtest
