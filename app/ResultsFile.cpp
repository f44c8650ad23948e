#include "app/ResultsFile.h"

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
    return true;
}

void ResultsFile::append(QByteArray const& text) {
    if (!m_file.isOpen())
        return;
    m_unwritten += text;
    writeUnwritten();
}

bool ResultsFile::complete() {
    return m_unwritten.isEmpty() || (m_file.isOpen() && writeUnwritten());
}

bool ResultsFile::writeUnwritten() {
    int const fd = m_file.handle();
    char const* data = m_unwritten.constData();
    qint64 left = m_unwritten.size();
    int error = ENOSPC; // a write that takes nothing and says nothing: a full disk
    while (left > 0) {
        ssize_t const n = ::write(fd, data, static_cast<size_t>(left));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            error = n < 0 ? errno : error;
            break;
        }
        data += n;
        left -= n;
    }
    if (left > 0) {
        refused(QString::fromLocal8Bit(std::strerror(error)));
        // No part of a piece stays behind: it is all written again next time.
        if (::ftruncate(fd, m_whole) != 0 || ::lseek(fd, m_whole, SEEK_SET) != m_whole)
            refused(QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    }
    m_whole += m_unwritten.size();
    m_unwritten.clear();
    // A failed sync is said, but the bytes stand: the file as the kernel
    // holds it is still the best copy there is to upload.
    if (::fsync(fd) != 0)
        refused(QString::fromLocal8Bit(std::strerror(errno)));
    return true;
}

void ResultsFile::refused(QString const& reason) {
    if (!m_reason.isEmpty())
        return; // said once: the rest of the run would repeat it for every line
    m_reason = reason;
    std::fprintf(stderr, "Couldn't write the results file %s: %s\n",
                 m_file.fileName().toLocal8Bit().constData(), reason.toLocal8Bit().constData());
    std::fflush(stderr);
}
