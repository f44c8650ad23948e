#include "upload/UploadJournal.h"

#include <csignal>
#include <string>
#include <sys/resource.h>
#include <vector>

#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include "upload/JournaledUpload.h"

namespace {

using Event = JournalEntry::Event;

class Folder {
public:
    QString file(char const* name, QByteArray const& content = "Serial No: 1\n") const {
        QString const path = m_dir.filePath(QString::fromLatin1(name));
        QFile out(path);
        EXPECT_TRUE(out.open(QIODevice::WriteOnly | QIODevice::Truncate));
        out.write(content);
        return path;
    }
    void raw(QByteArray const& bytes) const {
        QFile out(journal.path());
        ASSERT_TRUE(out.open(QIODevice::Append));
        out.write(bytes);
    }
    QTemporaryDir m_dir;
    UploadJournal journal{m_dir.filePath(UploadJournal::kFileName)};
};

// Steps: "R x" / "U x" append a requested / uploaded record of file x;
// "cut x" leaves a request for x cut short by a crash; "junk" a line of rubbish.
TEST(UploadJournal, PendingAndDamagedLines) {
    struct Case {
        std::vector<std::string> steps;
        std::vector<std::string> pending;
        std::vector<std::pair<int, char const*>> problems;
    } const cases[] = {
        {{"R a"}, {"a"}, {}},
        {{"R a", "U a"}, {}, {}},
        {{"R a", "R b", "U a"}, {"b"}, {}},
        {{"U a", "R a"}, {"a"}, {}},
        {{"R a", "U a", "R a"}, {"a"}, {}},
        {{"R b", "R a", "R b"}, {"a", "b"}, {}},
        {{"R a", "cut b"}, {"a"}, {{2, "truncated"}}},
        // The next record starts on a line of its own; the cut one stays damaged.
        {{"cut a", "R b"}, {"b"}, {{1, "malformed"}}},
        {{"R a", "junk", "R b"}, {"a", "b"}, {{2, "malformed"}}},
    };
    for (auto const& c : cases) {
        Folder folder;
        std::string trace;
        for (std::string const& step : c.steps) {
            trace += step + "; ";
            std::string const name = step.substr(step.find(' ') + 1);
            QString const path = folder.file(name.c_str());
            auto const event = step[0] == 'U' ? Event::Uploaded : Event::Requested;
            JournalEntry const entry = UploadJournal::describe(event, path, "/CV084/1/fpt/");
            if (step == "junk")
                folder.raw("requested\tnot a record\n");
            else if (step.rfind("cut", 0) == 0)
                folder.raw(entry.toLine().chopped(3));
            else
                ASSERT_TRUE(folder.journal.append(entry)) << trace;
        }
        JournalContents const contents = folder.journal.read();
        std::vector<std::string> pending;
        for (auto const& entry : contents.pending())
            pending.push_back(QFileInfo(entry.path).fileName().toStdString());
        EXPECT_EQ(pending, c.pending) << trace;
        ASSERT_EQ(contents.problems.size(), c.problems.size()) << trace;
        for (std::size_t i = 0; i < c.problems.size(); ++i) {
            EXPECT_EQ(contents.problems[i].line, c.problems[i].first) << trace;
            EXPECT_EQ(contents.problems[i].what, QString::fromLatin1(c.problems[i].second));
        }
    }
}

TEST(UploadJournal, RecordRoundTripsOddNamesAndMatchesOnlyTheSameContent) {
    Folder folder;
    QString const path = folder.file("a\tb%41\nc.txt", "Serial No: 7\nPASSED  - x\n");
    JournalEntry const request =
        UploadJournal::describe(Event::Requested, path, QStringLiteral("/CV084/7 %1/fpt/"));
    EXPECT_EQ(request.size, 25);
    EXPECT_EQ(request.sha256,
              QCryptographicHash::hash("Serial No: 7\nPASSED  - x\n", QCryptographicHash::Sha256)
                  .toHex());
    ASSERT_TRUE(folder.journal.append(request));
    auto const entries = folder.journal.read().entries;
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].path, path);
    EXPECT_EQ(entries[0].targetDir, QStringLiteral("/CV084/7 %1/fpt/"));
    EXPECT_TRUE(FileState::of(path).matches(entries[0]));

    folder.file("a\tb%41\nc.txt", "Serial No: 7\nFAIL!!  - x\n"); // same size
    EXPECT_FALSE(FileState::of(path).matches(entries[0]));
    QFile::remove(path);
    EXPECT_FALSE(FileState::of(path).exists);
}

TEST(UploadJournal, FailedAppendLeavesNoPartOfItsLine) {
    Folder folder;
    JournalEntry const entry =
        UploadJournal::describe(Event::Requested, folder.file("a"), "/CV084/1/fpt/");
    ASSERT_TRUE(folder.journal.append(entry));
    qint64 const before = QFileInfo(folder.journal.path()).size();
    // The disk fills up ten bytes into the next line.
    rlimit unlimited{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &unlimited), 0);
    rlimit const full{static_cast<rlim_t>(before + 10), unlimited.rlim_max};
    auto const oldHandler = std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &full), 0);
    QString why;
    bool const appended = folder.journal.append(entry, &why);
    ::setrlimit(RLIMIT_FSIZE, &unlimited);
    std::signal(SIGXFSZ, oldHandler);
    EXPECT_FALSE(appended);
    EXPECT_EQ(why, folder.journal.path() + QStringLiteral(": File too large"));
    EXPECT_EQ(QFileInfo(folder.journal.path()).size(), before);
}

TEST(UploadJournal, RequestRecordedOnlyOnceTheFileIsOnDisk) {
    Folder folder;
    QString why;
    // The one file whose flush to disk always fails.
    EXPECT_FALSE(recordRequest(folder.journal, "/dev/null", "/CV084/1/fpt/", &why));
    EXPECT_EQ(why, QStringLiteral("/dev/null: Invalid argument"));
    EXPECT_FALSE(QFileInfo::exists(folder.journal.path()));
}

} // namespace
