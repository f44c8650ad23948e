#include "app/ResultsFile.h"

#include <csignal>
#include <sys/resource.h>

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

QByteArray contents(QString const& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>");
}

// Linux reports a failed writeback once: the file must not pass for whole
// after it, however well later writes go.
TEST(ResultsFile, FailedSyncMarksItIncompleteForGood) {
    ResultsFile file;
    // The one file whose sync always fails (EINVAL), while its writes succeed.
    ASSERT_TRUE(file.create(QStringLiteral("/dev/null")));
    file.append("Serial No: 1\n");
    file.append("PASSED  - x\n");
    EXPECT_FALSE(file.complete());
    EXPECT_EQ(file.reason(), QStringLiteral("Invalid argument"));
    EXPECT_EQ(file.unwritten(), QByteArray("Serial No: 1\nPASSED  - x\n"));
}

// A write the disk refuses part-way: the file ends at its last whole line,
// and nothing is written after the refusal, even once the disk takes data
// again (so no line lands after a gap, or after a tail left behind).
TEST(ResultsFile, RefusedWriteLeavesWholeLinesAndStopsWriting) {
    QTemporaryDir dir;
    QString const path = dir.filePath(QStringLiteral("r.txt"));
    ResultsFile file;
    ASSERT_TRUE(file.create(path));
    file.append("Serial No: 1\n");
    rlimit unlimited{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &unlimited), 0);
    rlimit const full{18, unlimited.rlim_max}; // five bytes into the next line
    auto const oldHandler = std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &full), 0);
    file.append("PASSED  - x\n");
    ::setrlimit(RLIMIT_FSIZE, &unlimited);
    std::signal(SIGXFSZ, oldHandler);
    file.append("FAIL!!  - y\n");
    EXPECT_FALSE(file.complete());
    EXPECT_EQ(file.reason(), QStringLiteral("File too large"));
    EXPECT_EQ(contents(path), QByteArray("Serial No: 1\n"));
    EXPECT_EQ(file.unwritten(), QByteArray("PASSED  - x\nFAIL!!  - y\n"));
}

} // namespace
