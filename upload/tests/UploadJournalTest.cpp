#include "upload/UploadJournal.h"

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
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

// Steps: "R x" / "U x" / "M x" / "X x" / "I x" append a requested / uploaded
// / moved / refused / incomplete record of file x; "cut x" leaves a request
// for x cut short by a crash; "junk" a line of rubbish.
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
        {{"R a", "R b", "M a"}, {"b"}, {}},
        {{"R a", "X a"}, {}, {}},
        {{"R a", "I a"}, {"a"}, {}},
    };
    for (auto const& c : cases) {
        Folder folder;
        std::string trace;
        for (std::string const& step : c.steps) {
            trace += step + "; ";
            std::string const name = step.substr(step.find(' ') + 1);
            QString const path = folder.file(name.c_str());
            auto const event = step[0] == 'U'   ? Event::Uploaded
                               : step[0] == 'M' ? Event::Moved
                               : step[0] == 'X' ? Event::Refused
                               : step[0] == 'I' ? Event::Incomplete
                                                : Event::Requested;
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

// front_panel_upload appends while front_panel_test may be appending: an
// append waits for the other's to end, so that a cut-back after a failed
// write never takes away the other program's line.
TEST(UploadJournal, AppendWaitsForAnotherProgramsAppend) {
    Folder folder;
    JournalEntry const entry =
        UploadJournal::describe(Event::Requested, folder.file("a"), "/CV084/1/fpt/");
    ASSERT_TRUE(folder.journal.append(entry));
    qint64 const before = QFileInfo(folder.journal.path()).size();
    int const other = ::open(QFile::encodeName(folder.journal.path()).constData(), O_RDWR);
    ASSERT_GE(other, 0);
    struct flock whole {};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    ASSERT_EQ(::fcntl(other, F_OFD_SETLK, &whole), 0);
    std::thread appender([&] { EXPECT_TRUE(folder.journal.append(entry)); });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(QFileInfo(folder.journal.path()).size(), before);
    ::close(other); // the other program's append ends
    appender.join();
    EXPECT_EQ(folder.journal.read().entries.size(), 2u);
}

// A results name used again while an earlier board's upload is pending:
// the earlier file goes aside with its request, content and target intact.
TEST(UploadJournal, PendingResultsKeptAsideWithTheirRequest) {
    Folder folder;
    QString const path = folder.file("same.txt", "Serial No: A\n");
    QString why;
    ASSERT_TRUE(recordRequest(folder.journal, path, "/CV084/A/front_panel_test/", &why))
        << why.toStdString();
    folder.file("same-1.txt", "taken\n");
    QString const aside = keepPendingResultsAside(path);
    EXPECT_EQ(aside, folder.m_dir.filePath("same-2.txt"));
    EXPECT_FALSE(QFileInfo::exists(path));
    auto const pending = folder.journal.read().pending();
    ASSERT_EQ(pending.size(), 1u);
    EXPECT_EQ(pending[0].path, aside);
    EXPECT_EQ(pending[0].targetDir, QStringLiteral("/CV084/A/front_panel_test/"));
    EXPECT_TRUE(FileState::of(aside).matches(pending[0]));
    // Once nothing is pending under the name, it is simply reused.
    folder.file("same.txt", "Serial No: B\n");
    EXPECT_EQ(keepPendingResultsAside(path), QString());
    EXPECT_TRUE(QFileInfo::exists(path));
}

// A file named through a symbolic link to its folder is the file the
// journal recorded.
TEST(UploadJournal, FileFoundThroughALinkedFolder) {
    Folder folder;
    QString const path = folder.file("r.txt");
    QString why;
    ASSERT_TRUE(recordRequest(folder.journal, path, "/CV084/1/fpt/", &why)) << why.toStdString();
    QTemporaryDir links;
    QString const link = links.filePath(QStringLiteral("results"));
    ASSERT_TRUE(QFile::link(folder.m_dir.path(), link));
    EXPECT_TRUE(folder.journal.read().isPending(link + QStringLiteral("/r.txt")));
}

// A power cut right after the earlier file was kept aside took back the
// unlink of its old name: the name, no longer pending, still shares the kept
// file, which the new run must not empty.
TEST(UploadJournal, NameStillSharedWithTheKeptFileLetGo) {
    Folder folder;
    QString const path = folder.file("same.txt", "Serial No: A\n");
    QString why;
    ASSERT_TRUE(recordRequest(folder.journal, path, "/CV084/A/front_panel_test/", &why));
    QString const aside = keepPendingResultsAside(path);
    ASSERT_EQ(::link(QFile::encodeName(aside).constData(), QFile::encodeName(path).constData()), 0);
    EXPECT_EQ(keepPendingResultsAside(path), QString());
    QFile next(path); // the new run's results file, emptied
    ASSERT_TRUE(next.open(QIODevice::WriteOnly | QIODevice::Truncate));
    EXPECT_TRUE(FileState::of(aside).matches(folder.journal.read().pending().at(0)));
}

} // namespace
