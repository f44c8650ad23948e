#pragma once

// The upload journal: one line per event beside the results files, so that a
// results file whose upload failed is never lost, only delayed. Lines are
// only ever appended, each one flushed to disk before the call returns; a
// crash at any moment leaves at worst a truncated last line, which readers
// report and skip.
//
// A line is six tab-separated fields, the hash last so that a truncated line
// can never pass for a whole one:
//   event  time (UTC)  target directory  results file (absolute)  size  SHA-256
// The two text fields are percent-encoded where they hold a tab, newline or %.

#include <QByteArray>
#include <QString>
#include <vector>

struct JournalEntry {
    // Forgotten: the operator gave the file up (deleted for good); Moved: the
    // file was kept aside under another name (its request follows it there,
    // in a "requested" line written just before). Like an upload, both end
    // the file's pending request. Refused: the repository refused to replace
    // an asset of that name and could not show that it holds this content
    // (sending again cannot help); it ends the request without claiming an
    // upload. Incomplete: the file lacks lines the disk refused, so it must
    // not be sent as the board's results; it opens and ends nothing.
    enum class Event { Requested, Uploaded, Forgotten, Moved, Refused, Incomplete };

    Event event = Event::Requested;
    QString time;
    QString targetDir;
    QString path;
    qint64 size = 0;
    QByteArray sha256; // lower-case hex

    // The line as written, newline included.
    QByteArray toLine() const;
    // A whole line without its newline; false if it is not one.
    static bool fromLine(QByteArray const& line, JournalEntry& entry);
};

// What a results file holds now; exists is false when it cannot be read.
struct FileState {
    bool exists = false;
    qint64 size = 0;
    QByteArray sha256;

    static FileState of(QString const& path);
    bool matches(JournalEntry const& entry) const {
        return exists && size == entry.size && sha256 == entry.sha256;
    }
};

struct JournalContents {
    struct Problem {
        int line;
        QString what;
    };
    std::vector<JournalEntry> entries;
    std::vector<Problem> problems;
    // Why a journal that exists could not be read; empty if it was.
    QString error;

    // Files whose last request has no upload (or forgetting) after it, in
    // request order.
    std::vector<JournalEntry> pending() const;
    // The latest request for this file, or null.
    JournalEntry const* lastRequest(QString const& path) const;
    // The latest line of any kind for this file, or null.
    JournalEntry const* last(QString const& path) const;
    bool isPending(QString const& path) const;
};

class UploadJournal {
public:
    static QString const kFileName;
    // The absolute path with the folder's symbolic links resolved: the name
    // the journal records a file by, however it was reached.
    static QString canonical(QString const& path);
    // The journal of the results folder that holds resultsFile.
    static QString besideResults(QString const& resultsFile);

    explicit UploadJournal(QString path) : m_path(std::move(path)) {}

    QString const& path() const { return m_path; }

    // Appends one line and waits until it is on disk. A journal whose last
    // line was cut short first gets the missing newline, so the new line
    // stays whole. On failure the journal is cut back to its size before,
    // and false is returned with the reason ("<journal>: <error>") in why.
    // front_panel_test and front_panel_upload append to the same journal:
    // each append holds a short write lock on it, so that one program's
    // cut-back never takes away a line the other has just written.
    bool append(JournalEntry const& entry, QString* why = nullptr) const;

    // Every whole line; a journal that does not exist is empty, one that
    // cannot be read says why.
    JournalContents read() const;

    // A "requested" or "uploaded" entry for the file as it is now, stamped
    // with the current time; size and hash stay empty if it cannot be read.
    static JournalEntry describe(JournalEntry::Event event, QString const& path,
                                 QString const& targetDir);
    // The time an entry is stamped with: now, in UTC.
    static QString now();

    // Syncs the folder that holds `path`, so that its name is on disk; false
    // (and why) when it cannot be.
    static bool syncFolder(QString const& path, QString* why);

private:
    QString m_path;
};
