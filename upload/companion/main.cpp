// front_panel_upload: sends the results files of front_panel_test whose
// upload failed (factory network down, repository refusing), as the upload
// journal beside the results records them. Same repository, credential and
// tries as front_panel_test's own upload.

#include <algorithm>
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
    "usage: front_panel_upload [--journal FILE] [--list | [--forget | --incomplete] "
    "RESULTS_FILE...]\n"
    "Sends front_panel_test results files whose upload failed to the artifact repository.\n"
    "  (no file)       send every file whose upload was requested and never succeeded\n"
    "  RESULTS_FILE    send this file, also when it changed since the upload was requested\n"
    "  --list          show what is pending, send nothing\n"
    "  --forget RESULTS_FILE...\n"
    "                  give up these pending files (deleted for good): no longer pending\n"
    "  --incomplete RESULTS_FILE...\n"
    "                  send these files also when front_panel_test marked them incomplete\n"
    "                  (lines the disk refused are missing from them)\n"
    "  --journal FILE  the upload journal: by default "
    "/home/transfer/log/.front_panel_test-uploads,\n"
    "                  and for a named file the one beside it; name it for the results that\n"
    "                  front_panel_test -f wrote elsewhere\n"
    "  -h, --help      show this text\n"
    "Exit status: 0 nothing left to send, 1 something left or a send not recorded, 2 usage,\n"
    "3 another instance busy.\n";

QString const kMissing = QStringLiteral("missing");
QString const kChanged = QStringLiteral("changed since its upload was requested");
QString const kIncomplete =
    QStringLiteral("marked incomplete by front_panel_test (lines the disk refused are missing), "
                   "not sent as the board's results (--incomplete sends it as it is)");

QByteArray local(QString const& text) {
    return text.toLocal8Bit();
}

struct Options {
    bool list = false;
    bool help = false;
    QString journal; // empty: the default one, or the one beside a named file
    bool forget = false;
    bool incomplete = false;
    QStringList files;

    // False on an unknown option, a missing value, --list with a file, or
    // --forget or --incomplete without a file, with --list or with each other.
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
            else if (arg == QLatin1String("--forget"))
                forget = true;
            else if (arg == QLatin1String("--incomplete"))
                incomplete = true;
            else
                return false;
        }
        if (list)
            return files.isEmpty() && !forget && !incomplete;
        return (!forget && !incomplete) || (!files.isEmpty() && !(forget && incomplete));
    }

    // The journal of what is pending, without a file named.
    QString pendingJournal() const {
        return journal.isEmpty() ? QStringLiteral("/home/transfer/log/") + UploadJournal::kFileName
                                 : journal;
    }
    // The journal that records a named results file.
    QString journalOf(QString const& file) const {
        return journal.isEmpty() ? UploadJournal::besideResults(file) : journal;
    }
};

// Holds the journal's lock, so that two instances never send the same file
// at the same time. front_panel_test appends without it: its lines are
// single appends, and the operator must never wait for this program.
class JournalLock {
public:
    explicit JournalLock(QString const& journal)
        : m_fd(::open(QFile::encodeName(journal).constData(),
                      O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, 0644)),
          m_error(m_fd < 0 ? errno : 0) {}
    ~JournalLock() {
        if (m_fd >= 0)
            ::close(m_fd); // releases the lock
    }
    JournalLock(JournalLock const&) = delete;
    JournalLock& operator=(JournalLock const&) = delete;

    enum class Result { Held, Busy, CannotOpen, CannotLock };

    // Waits briefly for another holder to finish.
    Result acquire() {
        if (m_fd < 0)
            return Result::CannotOpen;
        auto const deadline = std::chrono::steady_clock::now() + kLockWait;
        while (::flock(m_fd, LOCK_EX | LOCK_NB) != 0) {
            m_error = errno;
            if (m_error != EWOULDBLOCK)
                return Result::CannotLock;
            if (std::chrono::steady_clock::now() >= deadline)
                return Result::Busy;
            std::this_thread::sleep_for(kLockRetry);
        }
        return Result::Held;
    }

    // Why the journal could not be opened or locked.
    char const* error() const { return std::strerror(m_error); }

private:
    int m_fd;
    int m_error;
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
        UploadJournal const pendingJournal(m_options.pendingJournal());
        if (m_options.list)
            return list(pendingJournal);
        if (m_options.forget)
            return forEachNamed(m_options.files, &FrontPanelUpload::forget);
        if (!m_options.files.isEmpty()) {
            m_total = static_cast<int>(m_options.files.size());
            int const status = forEachNamed(m_options.files, &FrontPanelUpload::sendNamed);
            return status == kExitBusy ? status : summary();
        }
        return underLock(pendingJournal, [&](JournalContents const& contents) {
            return sendPending(pendingJournal, contents);
        });
    }

private:
    // True when the named file is done with.
    using NamedStep = bool (FrontPanelUpload::*)(UploadJournal const&, JournalContents const&,
                                                 QString const&);

    // Each named file with the journal that records it, locked and read.
    int forEachNamed(QStringList const& names, NamedStep step) {
        int worst = kExitDone;
        for (QString const& name : names) {
            QString const path = UploadJournal::canonical(name);
            UploadJournal const journal(m_options.journalOf(path));
            int const status = underLock(
                journal,
                [&](JournalContents const& contents) {
                    return (this->*step)(journal, contents, path) ? kExitDone : kExitLeftPending;
                },
                step == &FrontPanelUpload::sendNamed);
            if (status == kExitBusy)
                return status;
            worst = std::max(worst, status);
        }
        return worst;
    }

    // Runs work on the journal as it reads under its lock: what another
    // instance sent meanwhile is no longer pending.
    template <typename Work>
    int underLock(UploadJournal const& journal, Work work, bool unlockedAllowed = false) {
        JournalLock lock(journal.path());
        switch (lock.acquire()) {
        case JournalLock::Result::Held:
            return withContents(journal, work);
        case JournalLock::Result::Busy:
            std::fprintf(stderr, "front_panel_upload: busy: another front_panel_upload is sending "
                                 "results; try again later\n");
            return kExitBusy;
        case JournalLock::Result::CannotOpen:
            std::fprintf(stderr, "front_panel_upload: cannot write %s: %s\n",
                         local(journal.path()).constData(), lock.error());
            // A named file is sent all the same (the file's own sending lock
            // keeps two senders apart); what it sends cannot be recorded.
            if (!unlockedAllowed)
                return kExitLeftPending;
            return withContents(journal, work);
        case JournalLock::Result::CannotLock:
            break;
        }
        std::fprintf(stderr, "front_panel_upload: cannot lock %s: %s\n",
                     local(journal.path()).constData(), lock.error());
        return kExitLeftPending;
    }

    // Sending from a journal that cannot be read would send what is not
    // pending, or miss what is: an error, as for --list.
    template <typename Work> static int withContents(UploadJournal const& journal, Work work) {
        JournalContents const contents = readJournal(journal);
        if (!contents.error.isEmpty()) {
            std::fprintf(stderr, "front_panel_upload: cannot read %s\n",
                         local(contents.error).constData());
            return kExitLeftPending;
        }
        return work(contents);
    }

    static JournalContents readJournal(UploadJournal const& journal) {
        JournalContents contents = journal.read();
        for (auto const& problem : contents.problems)
            std::fprintf(stderr, "front_panel_upload: %s line %d: %s, skipped\n",
                         local(journal.path()).constData(), problem.line,
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

    static int list(UploadJournal const& journal) {
        JournalContents const contents = readJournal(journal);
        if (!contents.error.isEmpty()) {
            std::fprintf(stderr, "front_panel_upload: cannot read %s\n",
                         local(contents.error).constData());
            return kExitLeftPending;
        }
        auto const pending = contents.pending();
        for (auto const& request : pending) {
            QString const why = obstacle(request);
            std::printf("%s -> %s, requested %s%s\n", local(request.path).constData(),
                        local(request.targetDir).constData(), local(request.time).constData(),
                        why.isEmpty() ? "" : local(" (" + why + ")").constData());
        }
        std::printf("%zu pending\n", pending.size());
        return pending.empty() ? kExitDone : kExitLeftPending;
    }

    int sendPending(UploadJournal const& journal, JournalContents const& contents) {
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
                send(journal, request.path, request.targetDir, true);
        }
        return summary();
    }

    bool sendNamed(UploadJournal const& journal, JournalContents const& contents,
                   QString const& path) {
        if (!QFileInfo::exists(path))
            return report(path, kMissing, false);
        // front_panel_test's mark of a file that lacks lines, as the file
        // still is: it also says where the board's results belong.
        JournalEntry const* last = contents.last(path);
        JournalEntry const* mark = last && last->event == JournalEntry::Event::Incomplete &&
                                           FileState::of(path).matches(*last)
                                       ? last
                                       : nullptr;
        if (mark && !m_options.incomplete)
            return report(path, kIncomplete, false);
        JournalEntry const* recorded = mark ? mark : contents.lastRequest(path);
        QString const serial = recorded ? QString() : serialNumberIn(path);
        if (!recorded && serial.isEmpty())
            return report(
                path, QStringLiteral("not in the journal and no \"Serial No: \" line, not sent"),
                false);
        return send(journal, path, recorded ? recorded->targetDir : resultsTargetDir(serial));
    }

    // A file given up stays out of what is pending; its last request is kept
    // in the record, so that the journal still says what was given up.
    bool forget(UploadJournal const& journal, JournalContents const& contents,
                QString const& path) {
        if (!contents.isPending(path)) {
            std::printf("%s: not pending in %s, nothing to forget\n", local(path).constData(),
                        local(journal.path()).constData());
            return true;
        }
        JournalEntry given = *contents.lastRequest(path);
        given.event = JournalEntry::Event::Forgotten;
        given.time = UploadJournal::describe(given.event, path, given.targetDir).time;
        QString why;
        if (!journal.append(given, &why)) {
            std::fprintf(stderr, "front_panel_upload: %s could not be forgotten (%s)\n",
                         local(path).constData(), local(why).constData());
            return false;
        }
        std::printf("%s: forgotten, no longer pending\n", local(path).constData());
        return true;
    }

    // pending: sent because the journal said so, which must still hold once
    // the file is ours (another program may have sent it meanwhile).
    bool send(UploadJournal const& journal, QString const& path, QString const& targetDir,
              bool pending = false) {
        SendingLock lock(path);
        if (!lock.acquire())
            return report(path, QStringLiteral("being sent by another program, not sent"), false);
        if (pending && !journal.read().isPending(path))
            return report(path, QStringLiteral("sent meanwhile by another program"), true);
        QString why;
        switch (sendAndRecord(journal, path, targetDir, &why)) {
        case SendResult::Uploaded:
            return report(path, QStringLiteral("uploaded to ") + targetDir, true);
        case SendResult::UploadedUnrecorded:
            ++m_unrecorded;
            return report(path,
                          QStringLiteral("uploaded to %1, but not recorded (%2): still pending")
                              .arg(targetDir, why),
                          true);
        case SendResult::AlreadyStored:
            return report(path, alreadyStoredText(targetDir), true);
        case SendResult::Refused:
            return report(path, why, false);
        case SendResult::Failed:
            break;
        }
        return report(path, QStringLiteral("upload failed"), false);
    }

    // One line per file, counted; returns sent.
    bool report(QString const& path, QString const& result, bool sent) {
        ++m_done;
        m_sent += sent ? 1 : 0;
        std::printf("%d of %d %s: %s\n", m_done, m_total,
                    local(QFileInfo(path).fileName()).constData(), local(result).constData());
        std::fflush(stdout);
        return sent;
    }

    // Files not reported (their journal could not be locked) count as not
    // sent; a send the journal could not record leaves the file pending.
    int summary() const {
        std::printf("%d sent, %d not sent\n", m_sent, m_total - m_sent);
        return m_sent == m_total && m_unrecorded == 0 ? kExitDone : kExitLeftPending;
    }

    Options const& m_options;
    int m_total = 0;
    int m_done = 0;
    int m_sent = 0;
    int m_unrecorded = 0;
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
