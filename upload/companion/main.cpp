// front_panel_upload: sends the results files of front_panel_test whose
// upload failed (factory network down, repository refusing), as the upload
// journal beside the results records them. Same repository, credential and
// tries as front_panel_test's own upload.

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <thread>
#include <unistd.h>

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QStringList>
#include <QTextStream>

#include "upload/JournaledUpload.h"
#include "upload/UploadJournal.h"

namespace {

constexpr int kExitDone = 0;
constexpr int kExitLeftPending = 1;
constexpr int kExitUsage = 2;
constexpr int kExitBusy = 3;
// A second instance waits this long for the first before giving up.
constexpr auto kLockWait = std::chrono::seconds(3);
constexpr auto kLockRetry = std::chrono::milliseconds(100);

char const kUsage[] =
    "usage: front_panel_upload [--list] [--journal FILE] [RESULTS_FILE...]\n"
    "Sends front_panel_test results files whose upload failed to the artifact repository.\n"
    "  (no file)       send every file whose upload was requested and never succeeded\n"
    "  RESULTS_FILE    send this file, also when it changed since the upload was requested\n"
    "  --list          show what is pending, send nothing\n"
    "  --journal FILE  the upload journal (default /home/transfer/log/.front_panel_test-uploads)\n"
    "  -h, --help      show this text\n"
    "Exit status: 0 nothing left to send, 1 something left, 2 usage, 3 another instance busy.\n";

QString const kMissing = QStringLiteral("missing");
QString const kChanged = QStringLiteral("changed since its upload was requested");

QByteArray local(QString const& text) {
    return text.toLocal8Bit();
}

struct Options {
    bool list = false;
    bool help = false;
    QString journal = QStringLiteral("/home/transfer/log/") + UploadJournal::kFileName;
    QStringList files;

    // False on an unknown option or a missing value.
    bool parse(QStringList const& args) {
        bool optionsEnd = false;
        for (int i = 1; i < args.size(); ++i) {
            QString const& arg = args[i];
            if (optionsEnd || !arg.startsWith('-') || arg == QLatin1String("-"))
                files << arg;
            else if (arg == QLatin1String("--"))
                optionsEnd = true;
            else if (arg == QLatin1String("-h") || arg == QLatin1String("--help"))
                help = true;
            else if (arg == QLatin1String("--list"))
                list = true;
            else if (arg == QLatin1String("--journal") && i + 1 < args.size())
                journal = args[++i];
            else
                return false;
        }
        return true;
    }
};

// Holds the journal's lock, so that two instances never send the same file
// at the same time. front_panel_test appends without it: its lines are
// single appends, and the operator must never wait for this program.
class JournalLock {
public:
    explicit JournalLock(QString const& journal)
        : m_fd(::open(QFile::encodeName(journal).constData(),
                      O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, 0644)) {}
    ~JournalLock() {
        if (m_fd >= 0)
            ::close(m_fd); // releases the lock
    }
    JournalLock(JournalLock const&) = delete;
    JournalLock& operator=(JournalLock const&) = delete;

    enum class Result { Held, Busy, Failed };

    // Waits briefly for another holder to finish.
    Result acquire() const {
        if (m_fd < 0)
            return Result::Failed;
        auto const deadline = std::chrono::steady_clock::now() + kLockWait;
        while (::flock(m_fd, LOCK_EX | LOCK_NB) != 0) {
            if (errno != EWOULDBLOCK)
                return Result::Failed;
            if (std::chrono::steady_clock::now() >= deadline)
                return Result::Busy;
            std::this_thread::sleep_for(kLockRetry);
        }
        return Result::Held;
    }

private:
    int m_fd;
};

// The board serial number from a results file's "Serial No: " line.
QString serialNumberIn(QString const& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return {};
    QTextStream in(&file);
    in.setCodec("UTF-8");
    QString const prefix = QStringLiteral("Serial No: ");
    while (!in.atEnd()) {
        QString const line = in.readLine();
        if (line.startsWith(prefix))
            return line.mid(prefix.size());
    }
    return {};
}

class FrontPanelUpload {
public:
    explicit FrontPanelUpload(Options const& options) : m_options(options) {}

    int run() {
        if (m_options.list)
            return list();
        JournalLock const lock(m_journal.path());
        switch (lock.acquire()) {
        case JournalLock::Result::Held:
            break;
        case JournalLock::Result::Busy:
            std::fprintf(stderr, "front_panel_upload: busy: another front_panel_upload is sending "
                                 "results; try again later\n");
            return kExitBusy;
        case JournalLock::Result::Failed:
            std::fprintf(stderr, "front_panel_upload: cannot lock %s: %s\n",
                         local(m_journal.path()).constData(), std::strerror(errno));
            return kExitLeftPending;
        }
        // Read under the lock: what another instance sent is no longer pending.
        JournalContents const contents = readJournal();
        return m_options.files.isEmpty() ? sendPending(contents) : sendNamed(contents);
    }

private:
    JournalContents readJournal() const {
        JournalContents contents = m_journal.read();
        for (auto const& problem : contents.problems)
            std::fprintf(stderr, "front_panel_upload: %s line %d: %s, skipped\n",
                         local(m_journal.path()).constData(), problem.line,
                         local(problem.what).constData());
        return contents;
    }

    // Why a pending file cannot be sent as it was requested; empty if it can.
    static QString obstacle(JournalEntry const& request) {
        FileState const now = FileState::of(request.path);
        if (!now.exists)
            return kMissing;
        if (!now.matches(request))
            return kChanged;
        return {};
    }

    int list() {
        auto const pending = readJournal().pending();
        for (auto const& request : pending) {
            QString const why = obstacle(request);
            std::printf("%s -> %s, requested %s%s\n", local(request.path).constData(),
                        local(request.targetDir).constData(), local(request.time).constData(),
                        why.isEmpty() ? "" : local(" (" + why + ")").constData());
        }
        std::printf("%zu pending\n", pending.size());
        return pending.empty() ? kExitDone : kExitLeftPending;
    }

    int sendPending(JournalContents const& contents) {
        auto const pending = contents.pending();
        if (pending.empty()) {
            std::printf("Nothing to send.\n");
            return kExitDone;
        }
        m_total = static_cast<int>(pending.size());
        for (auto const& request : pending) {
            QString const why = obstacle(request);
            if (why == kChanged)
                report(request.path,
                       why + QStringLiteral(", not sent (name the file to send it as it is now)"),
                       false);
            else if (!why.isEmpty())
                report(request.path, why, false);
            else
                send(request.path, request.targetDir);
        }
        return summary();
    }

    int sendNamed(JournalContents const& contents) {
        m_total = static_cast<int>(m_options.files.size());
        for (QString const& name : m_options.files) {
            QString const path = QFileInfo(name).absoluteFilePath();
            JournalEntry const* request = contents.lastRequest(path);
            QString const serial = request ? QString() : serialNumberIn(path);
            QString const targetDir = request ? request->targetDir : resultsTargetDir(serial);
            if (!QFileInfo::exists(path))
                report(path, kMissing, false);
            else if (!request && serial.isEmpty())
                report(path,
                       QStringLiteral("not in the journal and no \"Serial No: \" line, not sent"),
                       false);
            else
                send(path, targetDir);
        }
        return summary();
    }

    void send(QString const& path, QString const& targetDir) {
        if (sendAndRecord(m_journal, path, targetDir))
            report(path, QStringLiteral("uploaded to ") + targetDir, true);
        else
            report(path, QStringLiteral("upload failed"), false);
    }

    void report(QString const& path, QString const& result, bool sent) {
        ++m_done;
        (sent ? m_sent : m_left) += 1;
        std::printf("%d of %d %s: %s\n", m_done, m_total,
                    local(QFileInfo(path).fileName()).constData(), local(result).constData());
        std::fflush(stdout);
    }

    int summary() const {
        std::printf("%d sent, %d not sent\n", m_sent, m_left);
        return m_left == 0 ? kExitDone : kExitLeftPending;
    }

    Options const& m_options;
    UploadJournal const m_journal{m_options.journal};
    int m_total = 0;
    int m_done = 0;
    int m_sent = 0;
    int m_left = 0;
};

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    Options options;
    if (!options.parse(app.arguments())) {
        std::fputs(kUsage, stderr);
        return kExitUsage;
    }
    if (options.help) {
        std::fputs(kUsage, stdout);
        return kExitDone;
    }
    return FrontPanelUpload(options).run();
}
