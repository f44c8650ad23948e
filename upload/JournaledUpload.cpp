#include "upload/JournaledUpload.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include "upload/NexusUpload.h"
#include "upload/ProductionArtifactsNexusRepo.h"

namespace {

QByteArray local(QString const& text) {
    return text.toLocal8Bit();
}

// The text as one shell word: quoted unless it is plainly safe.
QString shellWord(QString const& text) {
    static QRegularExpression const plain(QStringLiteral("^[A-Za-z0-9_./:@%+,=-]+$"));
    if (plain.match(text).hasMatch())
        return text;
    QString quoted = text;
    quoted.replace(QLatin1Char('\''), QLatin1String("'\\''"));
    return QLatin1Char('\'') + quoted + QLatin1Char('\'');
}

// "<stem>-<n>.<ext>" beside path, for the n-th try.
QString asideName(QString const& path, int n) {
    QFileInfo const info(path);
    QString const suffix = info.suffix();
    QString const stem = suffix.isEmpty() ? info.fileName() : info.completeBaseName();
    QString name = stem + QLatin1Char('-') + QString::number(n);
    if (!suffix.isEmpty())
        name += QLatin1Char('.') + suffix;
    return info.absolutePath() + QLatin1Char('/') + name;
}

constexpr int kMaxAsideNames = 1000;
constexpr int kHttpOk = 200;
// What a hosted repository with redeploy disabled answers to an asset that is
// already there.
constexpr int kHttpBadRequest = 400;

QByteArray sha1Of(QString const& path) {
    QFile file(path);
    QCryptographicHash hash(QCryptographicHash::Sha1);
    if (!file.open(QIODevice::ReadOnly) || !hash.addData(&file))
        return {};
    return hash.result().toHex();
}

// The repository refused the file as an asset already there. An earlier try
// may have stored it with its answer lost (a time-out, a cut): the stored
// asset's SHA-1 tells, where this account may read it. Without that proof
// the file is neither called sent nor left pending for ever (every resend
// would be refused the same way): it is recorded "refused", and the engineer
// is told what to compare.
SendResult settleRefusedSend(ProductionArtifactsNexusRepo& repository, NexusUpload& uploader,
                             UploadJournal const& journal, JournalEntry const& sent, QString* why) {
    QString const name = QFileInfo(sent.path).fileName();
    QByteArray const mine = sha1Of(sent.path);
    QByteArray stored;
    int const status = repository.storedSha1(uploader, sent.targetDir, name, &stored);
    if (status == kHttpOk && !mine.isEmpty() && stored == mine)
        return journal.append(sent, why) ? SendResult::AlreadyStored
                                         : SendResult::UploadedUnrecorded;
    QString const asset = ProductionArtifactsNexusRepo::assetAddress(
        ProductionArtifactsNexusRepo::baseAddress(), sent.targetDir, name);
    QString said =
        status == kHttpOk
            ? QStringLiteral("the repository refused it (HTTP 400): it holds a different %1 "
                             "(SHA-1 %2) and does not allow replacing it")
                  .arg(name, QString::fromLatin1(stored))
            : QStringLiteral("the repository refused it (HTTP 400): an asset of that name is "
                             "already there and may not be replaced, and this account could not "
                             "read it back to compare (%1)")
                  .arg(status == 0 ? QStringLiteral("no answer")
                                   : QStringLiteral("HTTP %1").arg(status));
    said += QStringLiteral("; not recorded as uploaded, no longer pending. Check that %1 has "
                           "SHA-1 %2 (this file's)")
                .arg(asset, QString::fromLatin1(mine));
    JournalEntry refused = sent;
    refused.event = JournalEntry::Event::Refused;
    QString unrecorded;
    if (!journal.append(refused, &unrecorded))
        said += QStringLiteral("; the journal could not record this (%1): still pending")
                    .arg(unrecorded);
    *why = said;
    return SendResult::Refused;
}

} // namespace

// Opened read-only: the lock needs no right to write the file.
SendingLock::SendingLock(QString const& path)
    : m_fd(::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC)) {}

SendingLock::~SendingLock() {
    if (m_fd >= 0)
        ::close(m_fd); // releases the lock
}

bool SendingLock::acquire() {
    for (;;) {
        if (m_fd < 0 || ::flock(m_fd, LOCK_EX | LOCK_NB) == 0)
            return true;
        if (errno != EINTR)
            return errno != EWOULDBLOCK;
    }
}

QString resultsTargetDir(QString const& serialNumber) {
    return ProductionArtifactsNexusRepo::generateTargetDir(QStringLiteral("CV084"), serialNumber,
                                                           QStringLiteral("front_panel_test"));
}

QString sendLaterCommand(QString const& path) {
    return QStringLiteral("front_panel_upload ") + shellWord(UploadJournal::canonical(path));
}

bool recordRequest(UploadJournal const& journal, QString const& path, QString const& targetDir,
                   QString* why) {
    JournalEntry const request =
        UploadJournal::describe(JournalEntry::Event::Requested, path, targetDir);
    if (request.sha256.isEmpty()) {
        *why = path + QStringLiteral(": cannot be read");
        return false;
    }
    return journal.append(request, why);
}

SendResult sendAndRecord(UploadJournal const& journal, QString const& path,
                         QString const& targetDir, QString* why) {
    // Described before sending: the record is of the content that was sent.
    JournalEntry const sent =
        UploadJournal::describe(JournalEntry::Event::Uploaded, path, targetDir);
    NexusUpload uploader;
    ProductionArtifactsNexusRepo repository;
    if (repository.upload(uploader, path, targetDir)) {
        if (sent.sha256.isEmpty()) {
            *why = path + QStringLiteral(": cannot be read");
            return SendResult::UploadedUnrecorded;
        }
        return journal.append(sent, why) ? SendResult::Uploaded : SendResult::UploadedUnrecorded;
    }
    if (uploader.lastHttpStatus() != kHttpBadRequest || sent.sha256.isEmpty())
        return SendResult::Failed;
    return settleRefusedSend(repository, uploader, journal, sent, why);
}

QString alreadyStoredText(QString const& targetDir) {
    return QStringLiteral("already in %1 (an earlier try stored it: the same SHA-1), recorded as "
                          "uploaded")
        .arg(targetDir);
}

SendResult uploadRequestedResults(QString const& path, QString const& targetDir) {
    UploadJournal const journal(UploadJournal::besideResults(path));
    SendingLock lock(path);
    if (!lock.acquire()) {
        // Only front_panel_upload, sent by hand the file this run just wrote.
        std::fprintf(stderr, "%s is being sent by front_panel_upload right now\n",
                     local(path).constData());
        return SendResult::Failed;
    }
    QString why;
    bool const recorded = recordRequest(journal, path, targetDir, &why);
    if (!recorded)
        std::fprintf(stderr,
                     "The upload of %s could not be recorded (%s); if it fails, send the file "
                     "later with: %s\n",
                     local(path).constData(), local(why).constData(),
                     local(sendLaterCommand(path)).constData());
    // The tries can take half a minute against a silent repository.
    std::printf("Uploading %s to %s ...\n", QFile::encodeName(path).constData(),
                ProductionArtifactsNexusRepo::baseAddress().toLocal8Bit().constData());
    std::fflush(stdout);
    SendResult const result = sendAndRecord(journal, path, targetDir, &why);
    switch (result) {
    case SendResult::Uploaded:
    case SendResult::Failed:
        break;
    case SendResult::AlreadyStored:
        std::printf("%s: %s\n", local(path).constData(),
                    local(alreadyStoredText(targetDir)).constData());
        std::fflush(stdout);
        break;
    case SendResult::Refused:
        std::fprintf(stderr, "%s: %s\n", local(path).constData(), local(why).constData());
        break;
    case SendResult::UploadedUnrecorded:
        if (recorded)
            std::fprintf(stderr,
                         "%s was uploaded, but the journal could not record it (%s); "
                         "front_panel_upload may send it again\n",
                         local(path).constData(), local(why).constData());
        break;
    }
    return result;
}

QString keepPendingResultsAside(QString const& path) {
    if (!QFileInfo::exists(path))
        return {};
    UploadJournal const journal(UploadJournal::besideResults(path));
    JournalContents const contents = journal.read();
    // A journal that cannot be read may hold a request for the file: kept
    // aside all the same, as nothing can be recorded.
    JournalEntry const* request = contents.lastRequest(path);
    QByteArray const from = QFile::encodeName(path);
    auto const unlinkFailed = [&path] {
        return QStringLiteral("!") + path + QStringLiteral(": ") +
               QString::fromLocal8Bit(std::strerror(errno));
    };
    if (contents.error.isEmpty() && !contents.isPending(path)) {
        // Still a second name of a file kept aside (a power cut took back
        // the unlink below): emptied in place, it would empty the kept
        // board's results too. The name goes; the file stays under the other.
        struct stat info {};
        if (::lstat(from.constData(), &info) == 0 && S_ISREG(info.st_mode) && info.st_nlink > 1 &&
            ::unlink(from.constData()) != 0)
            return unlinkFailed();
        return {};
    }
    QString aside;
    for (int n = 1; aside.isEmpty() && n <= kMaxAsideNames; ++n) {
        QString const name = asideName(path, n);
        if (::link(from.constData(), QFile::encodeName(name).constData()) == 0)
            aside = name;
        else if (errno != EEXIST)
            return QStringLiteral("!") + name + QStringLiteral(": ") +
                   QString::fromLocal8Bit(std::strerror(errno));
    }
    if (aside.isEmpty())
        return QStringLiteral("!no free name beside ") + path;
    QString why;
    if (request != nullptr) {
        // The request moves as it was recorded: the file's content was on
        // disk then (a file changed since stays "changed" under its new
        // name), only the new name must reach the disk before it is named.
        JournalEntry kept = *request;
        kept.path = UploadJournal::canonical(aside);
        kept.time = UploadJournal::now();
        if (!UploadJournal::syncFolder(aside, &why) || !journal.append(kept, &why)) {
            ::unlink(QFile::encodeName(aside).constData());
            return QStringLiteral("!") + why;
        }
        JournalEntry moved = *request;
        moved.event = JournalEntry::Event::Moved;
        moved.time = kept.time;
        // Both names stay, the same content, both pending: sent twice at
        // worst, never lost.
        if (!journal.append(moved, &why))
            return QStringLiteral("!") + why;
    }
    // Not synced here: the new results file's folder sync takes this unlink
    // to the disk with its own name. Until then a cut leaves the old name,
    // no longer pending, on the kept file (see above).
    if (::unlink(from.constData()) != 0)
        return unlinkFailed();
    return aside;
}

bool recordIncomplete(QString const& path, QString const& targetDir, QString* why) {
    JournalEntry const mark =
        UploadJournal::describe(JournalEntry::Event::Incomplete, path, targetDir);
    if (mark.sha256.isEmpty()) {
        *why = path + QStringLiteral(": cannot be read");
        return false;
    }
    return UploadJournal(UploadJournal::besideResults(path)).append(mark, why);
}
