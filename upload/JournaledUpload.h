#pragma once

// Results-file uploads that leave their trace in the upload journal, shared by
// front_panel_test (the operator's (U)pload) and front_panel_upload (sending
// later what failed).

#include <QString>

#include "upload/UploadJournal.h"

// The repository directory of a board's results: /CV084/<serial>/front_panel_test/.
QString resultsTargetDir(QString const& serialNumber);

// The command that sends this results file later, as the operator types it.
QString sendLaterCommand(QString const& path);

// Records that the upload of the file was requested, once the file and the
// folder that holds its name are on disk: a power cut must never leave a
// record of a file the disk does not have. False with the reason in why.
bool recordRequest(UploadJournal const& journal, QString const& path, QString const& targetDir,
                   QString* why);

// Sends the file, three tries, and records "uploaded" once the repository has
// taken it. True on success.
bool sendAndRecord(UploadJournal const& journal, QString const& path, QString const& targetDir);

// The operator chose (U)pload: "requested" goes into the journal beside the
// file first, so that a failed upload stays pending for front_panel_upload;
// the operator is told what is being sent where; then sendAndRecord.
bool uploadRequestedResults(QString const& path, QString const& targetDir);
