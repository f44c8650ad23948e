#pragma once

// The results file on disk. Each piece of text is written, flushed and synced
// at once: the instrument may be switched off as soon as the operator has
// seen a result. A write the disk refuses (full, failing) is cut back to the
// last whole piece, so the file never ends in part of a line, and what it
// refused is kept and tried again before the next piece. Whether the file is
// complete is known at the end, before anything promises it is uploaded.

#include <QByteArray>
#include <QFile>
#include <QString>

class ResultsFile {
public:
    // Opens the file, emptied; false (and the design's message) if it cannot.
    bool create(QString const& path);
    bool isOpen() const { return m_file.isOpen(); }
    void append(QByteArray const& text);
    // Tries once more to write what the disk refused; true when the file
    // holds everything appended.
    bool complete();
    // What the disk has refused so far, and why.
    QByteArray const& unwritten() const { return m_unwritten; }
    QString const& reason() const { return m_reason; }
    void close() { m_file.close(); }

private:
    bool writeUnwritten();
    // Says the first refusal, naming the file and the reason.
    void refused(QString const& reason);

    QFile m_file;
    qint64 m_whole = 0; // bytes on disk, all of them whole pieces
    QByteArray m_unwritten;
    QString m_reason;
};
