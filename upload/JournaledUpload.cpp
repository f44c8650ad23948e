#include "upload/JournaledUpload.h"

#include <cstdio>

#include <QFile>

#include "upload/ProductionArtifactsNexusRepo.h"

QString resultsTargetDir(QString const& serialNumber) {
    return ProductionArtifactsNexusRepo::generateTargetDir(QStringLiteral("CV084"), serialNumber,
                                                           QStringLiteral("front_panel_test"));
}

bool sendAndRecord(UploadJournal const& journal, QString const& path, QString const& targetDir) {
    // Described before sending: the record is of the content that was sent.
    JournalEntry const sent =
        UploadJournal::describe(JournalEntry::Event::Uploaded, path, targetDir);
    if (!ProductionArtifactsNexusRepo().upload(path, targetDir))
        return false;
    if (!sent.sha256.isEmpty())
        journal.append(sent);
    return true;
}

bool uploadRequestedResults(QString const& path, QString const& targetDir) {
    UploadJournal const journal(UploadJournal::besideResults(path));
    JournalEntry const request =
        UploadJournal::describe(JournalEntry::Event::Requested, path, targetDir);
    if (!request.sha256.isEmpty())
        journal.append(request);
    // The tries can take half a minute against a silent repository.
    std::printf("Uploading %s to %s ...\n", QFile::encodeName(path).constData(),
                ProductionArtifactsNexusRepo::baseAddress().toLocal8Bit().constData());
    std::fflush(stdout);
    return sendAndRecord(journal, path, targetDir);
}
