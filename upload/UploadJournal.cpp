#include "upload/UploadJournal.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <sys/stat.h>
#include <unistd.h>

#include <QCryptographicHash>
#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QList>

namespace {

constexpr int kFieldCount = 6;
constexpr int kSha256HexLength = 64;
// Percent-encoded in the text fields: the separators, and % itself.
QByteArray const kEncoded = QByteArrayLiteral("\t\n\r%");

QByteArray encode(QString const& text) {
    QByteArray const utf8 = text.toUtf8();
    QByteArray out;
    for (char c : utf8) {
        if (kEncoded.contains(c))
            out += '%' + QByteArray(1, c).toHex().toUpper();
        else
            out += c;
    }
    return out;
}

QString decode(QByteArray const& field) {
    return QString::fromUtf8(QByteArray::fromPercentEncoding(field));
}

// The first field of a line, in the order of JournalEntry::Event.
char const* const kEventNames[] = {"requested", "uploaded", "forgotten",
                                   "moved",     "refused",  "incomplete"};

bool isLowerHex(QByteArray const& text) {
    for (char c : text)
        if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f')))
            return false;
    return true;
}

// Owns one open descriptor.
class Descriptor {
public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    ~Descriptor() {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    Descriptor(Descriptor const&) = delete;
    Descriptor& operator=(Descriptor const&) = delete;
    int get() const { return m_fd; }

private:
    int m_fd;
};

bool writeAll(int fd, QByteArray const& data) {
    char const* next = data.constData();
    auto left = static_cast<std::size_t>(data.size());
    while (left > 0) {
        ssize_t const written = ::write(fd, next, left);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        next += written;
        left -= static_cast<std::size_t>(written);
    }
    return true;
}

// Records "<file>: <reason>" from errno; always false.
bool failed(QString const& file, QString* why) {
    if (why)
        *why = file + QStringLiteral(": ") + QString::fromLocal8Bit(std::strerror(errno));
    return false;
}

// Holds a write lock on the whole journal for one append. An open file
// description's lock (not flock, which front_panel_upload holds for a whole
// sending run, nor a process lock, which any close in the process drops):
// held only for a write and its sync, so nobody waits long for it.
class AppendLock {
public:
    explicit AppendLock(int fd) : m_fd(fd) {
        struct flock whole {};
        whole.l_type = F_WRLCK;
        whole.l_whence = SEEK_SET;
        for (;;) {
            m_held = ::fcntl(m_fd, F_OFD_SETLKW, &whole) == 0;
            if (m_held || errno != EINTR)
                break;
        }
    }
    ~AppendLock() {
        if (!m_held)
            return;
        struct flock whole {};
        whole.l_type = F_UNLCK;
        whole.l_whence = SEEK_SET;
        ::fcntl(m_fd, F_OFD_SETLK, &whole);
    }
    AppendLock(AppendLock const&) = delete;
    AppendLock& operator=(AppendLock const&) = delete;
    bool held() const { return m_held; }

private:
    int m_fd;
    bool m_held = false;
};

bool sameFile(QString const& recorded, QString const& path) {
    return recorded == path || UploadJournal::canonical(recorded) == path;
}

} // namespace

QString const UploadJournal::kFileName = QStringLiteral(".front_panel_test-uploads");

QByteArray JournalEntry::toLine() const {
    return QByteArray(kEventNames[static_cast<int>(event)]) + '\t' + encode(time) + '\t' +
           encode(targetDir) + '\t' + encode(path) + '\t' + QByteArray::number(size) + '\t' +
           sha256 + '\n';
}

bool JournalEntry::fromLine(QByteArray const& line, JournalEntry& entry) {
    QList<QByteArray> const fields = line.split('\t');
    if (fields.size() != kFieldCount)
        return false;
    auto const name = std::find(std::begin(kEventNames), std::end(kEventNames), fields[0]);
    if (name == std::end(kEventNames))
        return false;
    entry.event = static_cast<Event>(name - std::begin(kEventNames));
    bool sizeOk = false;
    entry.size = fields[4].toLongLong(&sizeOk);
    entry.sha256 = fields[5];
    entry.time = decode(fields[1]);
    entry.targetDir = decode(fields[2]);
    entry.path = decode(fields[3]);
    return sizeOk && entry.size >= 0 && entry.sha256.size() == kSha256HexLength &&
           isLowerHex(entry.sha256) && !entry.time.isEmpty() && !entry.targetDir.isEmpty() &&
           entry.path.startsWith('/');
}

FileState FileState::of(QString const& path) {
    FileState state;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return state;
    QCryptographicHash hash(QCryptographicHash::Sha256);
    if (!hash.addData(&file))
        return state;
    state.exists = true;
    state.size = file.size();
    state.sha256 = hash.result().toHex();
    return state;
}

std::vector<JournalEntry> JournalContents::pending() const {
    // Index of each file's open request; an upload closes it.
    QHash<QString, std::size_t> open;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        if (entries[i].event == JournalEntry::Event::Requested)
            open.insert(entries[i].path, i);
        else if (entries[i].event != JournalEntry::Event::Incomplete)
            open.remove(entries[i].path);
    }
    std::vector<std::size_t> order(open.begin(), open.end());
    std::sort(order.begin(), order.end());
    std::vector<JournalEntry> result;
    for (std::size_t i : order)
        result.push_back(entries[i]);
    return result;
}

JournalEntry const* JournalContents::lastRequest(QString const& path) const {
    QString const file = UploadJournal::canonical(path);
    for (auto it = entries.rbegin(); it != entries.rend(); ++it)
        if (it->event == JournalEntry::Event::Requested && sameFile(it->path, file))
            return &*it;
    return nullptr;
}

JournalEntry const* JournalContents::last(QString const& path) const {
    QString const file = UploadJournal::canonical(path);
    for (auto it = entries.rbegin(); it != entries.rend(); ++it)
        if (sameFile(it->path, file))
            return &*it;
    return nullptr;
}

bool JournalContents::isPending(QString const& path) const {
    QString const file = UploadJournal::canonical(path);
    auto const open = pending();
    return std::any_of(open.begin(), open.end(),
                       [&](JournalEntry const& request) { return sameFile(request.path, file); });
}

QString UploadJournal::canonical(QString const& path) {
    QFileInfo const info(path);
    QString const folder = QFileInfo(info.absolutePath()).canonicalFilePath();
    return folder.isEmpty() ? info.absoluteFilePath() : folder + '/' + info.fileName();
}

QString UploadJournal::besideResults(QString const& resultsFile) {
    return QFileInfo(canonical(resultsFile)).absolutePath() + '/' + kFileName;
}

bool UploadJournal::append(JournalEntry const& entry, QString* why) const {
    QByteArray const name = QFile::encodeName(m_path);
    bool const created = !QFileInfo::exists(m_path);
    Descriptor fd(::open(name.constData(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, 0644));
    if (fd.get() < 0)
        return failed(m_path, why);
    AppendLock const lock(fd.get());
    // The size is taken under the lock: a cut-back goes to exactly where
    // this line began, never into another program's line.
    struct stat info {};
    if (!lock.held() || ::fstat(fd.get(), &info) != 0)
        return failed(m_path, why);
    // A new journal's name goes to disk before its first line: a line synced
    // into a file that a power cut then loses by name was never recorded.
    if (created && !syncFolder(m_path, why))
        return false;
    QByteArray line = entry.toLine();
    char last = '\n';
    if (info.st_size > 0 && ::pread(fd.get(), &last, 1, info.st_size - 1) == 1 && last != '\n')
        line.prepend('\n');
    if (!writeAll(fd.get(), line) || ::fdatasync(fd.get()) != 0) {
        int const error = errno;
        // A line cut short by a full disk would be read as damaged, or glued
        // to the next one: take back whatever part of it was written. Not
        // synced: until the next append's sync takes the cut-back to the
        // disk, a power cut leaves at worst a torn last line (or the zeros
        // of a failed writeback), which readers skip and the next append
        // ends with a newline. One that fails leaves the line torn, the same.
        [[maybe_unused]] int const cutBack = ::ftruncate(fd.get(), info.st_size);
        errno = error;
        return failed(m_path, why);
    }
    return true;
}

bool UploadJournal::syncFolder(QString const& path, QString* why) {
    QString const folder = QFileInfo(path).absolutePath();
    Descriptor dir(
        ::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (dir.get() < 0 || ::fsync(dir.get()) != 0)
        return failed(folder, why);
    return true;
}

JournalContents UploadJournal::read() const {
    JournalContents contents;
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (file.exists())
            contents.error = m_path + QStringLiteral(": ") + file.errorString();
        return contents;
    }
    QList<QByteArray> const lines = file.readAll().split('\n');
    // After the last newline comes an empty piece, or a line cut short.
    for (int i = 0; i < lines.size(); ++i) {
        bool const last = i + 1 == lines.size();
        if (last && lines[i].isEmpty())
            break;
        JournalEntry entry;
        if (last)
            contents.problems.push_back({i + 1, QStringLiteral("truncated")});
        else if (JournalEntry::fromLine(lines[i], entry))
            contents.entries.push_back(entry);
        else
            contents.problems.push_back({i + 1, QStringLiteral("malformed")});
    }
    return contents;
}

QString UploadJournal::now() {
    return QDateTime::currentDateTimeUtc().toString(Qt::ISODate);
}

JournalEntry UploadJournal::describe(JournalEntry::Event event, QString const& path,
                                     QString const& targetDir) {
    FileState const state = FileState::of(path);
    JournalEntry entry;
    entry.event = event;
    entry.time = now();
    entry.targetDir = targetDir;
    entry.path = canonical(path);
    entry.size = state.size;
    entry.sha256 = state.sha256;
    return entry;
}
