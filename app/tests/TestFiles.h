#pragma once

// Results-file helpers for the application's tests.

#include <QFile>
#include <QString>
#include <QTemporaryDir>
#include <string>

namespace fpt::testing {

inline std::string readWholeFile(QString const& path) {
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return "<missing>";
    return f.readAll().toStdString();
}

// A results file in a fresh temporary directory, removed with the object.
struct TempResultsFile {
    QTemporaryDir dir;
    QString path = dir.filePath(QStringLiteral("results.txt"));
    std::string content() const { return readWholeFile(path); }
};

} // namespace fpt::testing
