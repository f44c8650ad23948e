#include "app/ResultsFile.h"

#include "upload/UploadJournal.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

bool ResultsFile::create(QString const& path) {
    m_file.close();
    m_file.setFileName(path);
    m_whole = 0;
    m_unwritten.clear();
    m_reason.clear();
    // Written through its descriptor, not Qt's buffer: a write the disk
    // refuses must fail here, where it can be cut back and kept.
    if (!m_file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered)) {
        std::fputs("Couldn't open the log file ", stderr);
        std::fputs(path.toLocal8Bit().constData(), stderr);
        std::fflush(stderr);
        return false;
    }
    // The file's name is on disk only once its folder is synced: without
    // this, every line's fsync is kept in a file a power cut loses whole.
    // It also takes to the disk the unlink of an earlier file of this name
    // kept aside (that one stays whole under its new name either way).
    if (!UploadJournal::syncFolder(path, nullptr))
        failed();
    return true;
}

void ResultsFile::append(QByteArray const& text) {
    if (!m_file.isOpen())
        return;
    m_unwritten += text;
    if (m_reason.isEmpty())
        writeUnwritten();
}

void ResultsFile::writeUnwritten() {
    int const fd = m_file.handle();
    // Positioned at the end of what is known good, whatever the descriptor's
    // offset: a piece is never written after a tail the disk half took.
    qint64 done = 0;
    while (done < m_unwritten.size()) {
        ssize_t const n = ::pwrite(fd, m_unwritten.constData() + done,
                                   static_cast<size_t>(m_unwritten.size() - done), m_whole + done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            if (n == 0)
                errno = ENOSPC; // takes nothing and says nothing: a full disk
            failed();
            break;
        }
        done += n;
    }
    // The durability point of the results: the operator may switch off now.
    // A request to upload the file relies on it too, and syncs nothing more.
    if (m_reason.isEmpty() && ::fsync(fd) != 0)
        failed();
    if (!m_reason.isEmpty()) {
        // No part of a piece that may not be on disk stays in the file: the
        // file ends at its last synced whole line.
        // Synced, as nothing later syncs this file: a failed writeback
        // leaves the file's new size on the disk with zeros where the lost
        // piece was, and the incomplete mark names the file as cut back.
        if (::ftruncate(fd, m_whole) == 0)
            ::fsync(fd); // best effort: the file is already marked incomplete
        return;
    }
    m_whole += m_unwritten.size();
    m_unwritten.clear();
}

void ResultsFile::failed() {
    if (!m_reason.isEmpty())
        return;
    m_reason = QString::fromLocal8Bit(std::strerror(errno));
    std::fprintf(stderr, "Couldn't write the results file %s: %s\n",
                 m_file.fileName().toLocal8Bit().constData(), m_reason.toLocal8Bit().constData());
    std::fflush(stderr);
}
