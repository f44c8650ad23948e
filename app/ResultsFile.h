#pragma once

// The results file on disk. Each piece of text (whole lines) is written with
// one positioned write at the end of what is known good, then synced: the
// instrument may be switched off as soon as the operator has seen a result.
//
// The first error the disk reports (write, sync or the cut-back after them)
// marks the file incomplete for the rest of the run. Linux reports a failed
// writeback once, to whoever syncs first: a later sync that succeeds proves
// nothing about the pages that were lost, so such a file can never again be
// offered as the board's whole results. From then on nothing more is written
// to it, so what reaches the disk is always whole lines, in order, with no
// gap; what it lacks is kept for the operator to read.

#include <QByteArray>
#include <QFile>
#include <QString>

class ResultsFile {
public:
    // Opens the file, emptied; false (and the design's message) if it cannot.
    bool create(QString const& path);
    bool isOpen() const { return m_file.isOpen(); }
    QString fileName() const { return m_file.fileName(); }
    // Writes and syncs the text, unless the file already failed.
    void append(QByteArray const& text);
    // True when every piece appended is on disk and no error was ever seen.
    // Safe to call at any moment, also when the run is ending by a signal:
    // it writes nothing.
    bool complete() const { return m_reason.isEmpty() && m_unwritten.isEmpty(); }
    // What the file lacks (every piece from the first one not known to be on
    // disk), and the first error seen.
    QByteArray const& unwritten() const { return m_unwritten; }
    QString const& reason() const { return m_reason; }
    void close() { m_file.close(); }

private:
    void writeUnwritten();
    // Marks the file incomplete for good; says the first error once, naming
    // the file and the reason (errno).
    void failed();

    QFile m_file;
    qint64 m_whole = 0; // bytes on disk, synced, all of them whole pieces
    QByteArray m_unwritten;
    QString m_reason;
};
