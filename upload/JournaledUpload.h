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

// Records that the upload of the file was requested. The caller has the
// file and its name on disk already (front_panel_test syncs every line it
// writes and the name when it creates the file; a file that failed either
// is incomplete and never requested): a power cut must never leave a record
// of a file the disk does not have. False with the reason in why.
bool recordRequest(UploadJournal const& journal, QString const& path, QString const& targetDir,
                   QString* why);

// How one send ended.
enum class SendResult {
    Uploaded,
    // The repository has it, but the journal could not say so: it stays
    // pending and may be sent again.
    UploadedUnrecorded,
    // The repository refused it as an asset already there (HTTP 400, a
    // repository that does not allow redeploying), and holds this very
    // content (same SHA-1): an earlier try whose answer was lost stored it.
    // Recorded as uploaded.
    AlreadyStored,
    // Refused so, and it could not be shown to hold this content: recorded
    // "refused", no longer pending; why says what happened and how to check.
    Refused,
    Failed,
};

// What the operator is told, after the file's name, of a send the repository
// refused as already there and proven to hold this very content; a refusal
// without that proof is told in SendResult::Refused's why. The same words
// from front_panel_test's (U)pload and from front_panel_upload.
QString alreadyStoredText(QString const& targetDir);

// An exclusive flock on a results file for as long as it is being sent,
// never waited for: front_panel_test and front_panel_upload never send one
// file at the same time. Taken before the file's request is recorded, so a
// request seen in the journal is either being sent (locked) or not at all.
class SendingLock {
public:
    explicit SendingLock(QString const& path);
    ~SendingLock();
    SendingLock(SendingLock const&) = delete;
    SendingLock& operator=(SendingLock const&) = delete;
    // False only when another holder has it; a file that cannot be opened
    // fails later, in the send, with its own message.
    bool acquire();

private:
    int m_fd;
};

// Sends the file, three tries, and records "uploaded" once the repository has
// taken it (why says what kept it from being recorded). The caller holds the
// file's SendingLock.
SendResult sendAndRecord(UploadJournal const& journal, QString const& path,
                         QString const& targetDir, QString* why);

// The operator chose (U)pload: "requested" goes into the journal beside the
// file first, so that a failed upload stays pending for front_panel_upload;
// the operator is told what is being sent where; then sendAndRecord. What
// the repository's answer means (a refusal, a proven earlier store, a send
// the journal could not record) is told here; Failed is left to the caller.
SendResult uploadRequestedResults(QString const& path, QString const& targetDir);

// A results file about to be written at path, whose name an earlier run's
// pending upload still holds, would lose that board's results (and a later
// upload would file the new board's results under the earlier serial). The
// earlier file is kept aside as "<name>-<N>.<ext>" with its request: first
// the new name (a hard link) and its "requested" line, then the "moved" line
// for the old name, then the old name goes. Empty when nothing was pending
// at path (a name still shared with a file kept aside goes, the file stays);
// else the name it was kept as, or, when it could not be kept, a text
// starting "!" that says why (path is then left as it was).
QString keepPendingResultsAside(QString const& path);

// Marks the file in the journal beside it as lacking lines, so that
// front_panel_upload does not send it as the board's results. False with the
// reason in why.
bool recordIncomplete(QString const& path, QString const& targetDir, QString* why);
