#include "upload/JournaledUpload.h"

#include <cstdio>

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

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

} // namespace

QString resultsTargetDir(QString const& serialNumber) {
    return ProductionArtifactsNexusRepo::generateTargetDir(QStringLiteral("CV084"), serialNumber,
                                                           QStringLiteral("front_panel_test"));
}

QString sendLaterCommand(QString const& path) {
    return QStringLiteral("front_panel_upload ") + shellWord(QFileInfo(path).absoluteFilePath());
}

bool recordRequest(UploadJournal const& journal, QString const& path, QString const& targetDir,
                   QString* why) {
    if (!UploadJournal::syncToDisk(path, why))
        return false;
    JournalEntry const request =
        UploadJournal::describe(JournalEntry::Event::Requested, path, targetDir);
    if (request.sha256.isEmpty()) {
        *why = path + QStringLiteral(": cannot be read");
        return false;
    }
    return journal.append(request, why);
}

bool sendAndRecord(UploadJournal const& journal, QString const& path, QString const& targetDir) {
    // Described before sending: the record is of the content that was sent.
    JournalEntry const sent =
        UploadJournal::describe(JournalEntry::Event::Uploaded, path, targetDir);
    if (!ProductionArtifactsNexusRepo().upload(path, targetDir))
        return false;
    QString why;
    if (!sent.sha256.isEmpty() && !journal.append(sent, &why))
        std::fprintf(stderr,
                     "%s was uploaded, but the journal could not record it (%s); "
                     "front_panel_upload may send it again\n",
                     local(path).constData(), local(why).constData());
    return true;
}

bool uploadRequestedResults(QString const& path, QString const& targetDir) {
    UploadJournal const journal(UploadJournal::besideResults(path));
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
    // Nothing pending to close when the request could not be recorded.
    return recorded ? sendAndRecord(journal, path, targetDir)
                    : ProductionArtifactsNexusRepo().upload(path, targetDir);
}
