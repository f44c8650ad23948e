#include "yield/ResultsCache.h"

#include "yield/TextPool.h"

#include <QDir>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>

#include <QSet>

#include <algorithm>
#include <atomic>

namespace yield {
namespace {

// Bumped when the table's meaning changes: an older cache is emptied and
// filled again from the repository rather than misread.
constexpr int kSchemaVersion = 1;
// Rows per commit while downloading: a cut-off run loses at most these
// downloads, and a year's first sync makes a hundred commits, not 100,000.
constexpr int kRowsPerCommit = 1000;

QString newConnectionName() {
    static std::atomic<int> counter{0};
    return QStringLiteral("front_panel_yield_cache_%1").arg(counter++);
}

QString encodeResults(std::vector<ResultLine> const& results) {
    QString text;
    for (ResultLine const& line : results) {
        text += QLatin1Char(outcomeLetter(line.outcome));
        text += line.name;
        text += QLatin1Char('\n');
    }
    return text;
}

// A year of a busy line holds a million and more result lines but only a
// few dozen test names.
// Read as the UTF-8 the cache holds: no conversion, and each name's bytes
// looked up as they are.
std::vector<ResultLine> decodeResults(QByteArray const& text, TextPool& names) {
    std::vector<ResultLine> results;
    results.reserve(static_cast<std::size_t>(text.count('\n')));
    std::string_view rest(text.constData(), static_cast<std::size_t>(text.size()));
    while (!rest.empty()) {
        std::size_t const end = std::min(rest.find('\n'), rest.size());
        std::string_view const line = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
        ResultLine result;
        if (!line.empty() && outcomeFromLetter(line.front(), result.outcome)) {
            result.name = names.share(line.substr(1));
            results.push_back(std::move(result));
        }
    }
    return results;
}

} // namespace

ResultsCache::ResultsCache(QString directory)
    : directory_(std::move(directory)), connection_(newConnectionName()) {}

ResultsCache::~ResultsCache() {
    // What was stored is whole: kept, even on a failed run.
    flush();
    insert_.reset();
    {
        QSqlDatabase db = QSqlDatabase::database(connection_, false);
        if (db.isOpen()) {
            db.close();
        }
    }
    QSqlDatabase::removeDatabase(connection_);
}

QString ResultsCache::filePath() const {
    return QDir(directory_).filePath(QStringLiteral("cache.sqlite"));
}

bool ResultsCache::fail(QString const& what) {
    error_ = what;
    return false;
}

bool ResultsCache::open(OtherVersion otherVersion) {
    if (!QDir().mkpath(directory_)) {
        return fail(QStringLiteral("cannot make the folder %1").arg(directory_));
    }
    if (!QSqlDatabase::isDriverAvailable(QStringLiteral("QSQLITE"))) {
        return fail(QStringLiteral("Qt's SQLite driver is not installed (libqt5sql5-sqlite)"));
    }
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), connection_);
    db.setDatabaseName(filePath());
    if (!db.open()) {
        return fail(QStringLiteral("%1: %2").arg(filePath(), db.lastError().text()));
    }
    QSqlQuery query(db);
    if (!query.exec(QStringLiteral("PRAGMA user_version")) || !query.next()) {
        return fail(QStringLiteral("%1: %2").arg(filePath(), query.lastError().text()));
    }
    bool const otherVersionMade = query.value(0).toInt() != kSchemaVersion;
    query.finish();
    // Refused before anything is written to it, not even its journal mode.
    if (otherVersionMade && otherVersion == OtherVersion::Refuse) {
        return fail(QStringLiteral("%1 was made by another version of front_panel_yield;"
                                   " a run without --offline makes it again")
                        .arg(filePath()));
    }
    // Write-ahead logging keeps every commit whole across a kill or a
    // power cut; NORMAL may lose the last commits then, which only costs
    // their downloads again.
    for (char const* statement : {"PRAGMA journal_mode=WAL", "PRAGMA synchronous=NORMAL"}) {
        if (!query.exec(QLatin1String(statement))) {
            return fail(QStringLiteral("%1: %2").arg(filePath(), query.lastError().text()));
        }
    }
    if (otherVersionMade) {
        if (!db.transaction() || !query.exec(QStringLiteral("DROP TABLE IF EXISTS asset")) ||
            !query.exec(QStringLiteral(
                "CREATE TABLE asset (path TEXT PRIMARY KEY, sha1 TEXT NOT NULL, uploader TEXT,"
                " uploader_ip TEXT, readable INTEGER NOT NULL, serial TEXT, started TEXT, results "
                "TEXT)")) ||
            !query.exec(QStringLiteral("PRAGMA user_version=%1").arg(kSchemaVersion)) ||
            !db.commit()) {
            QString const reason = query.lastError().text();
            db.rollback();
            return fail(QStringLiteral("%1: %2").arg(filePath(), reason));
        }
    }
    return true;
}

QHash<QString, CachedAsset> ResultsCache::assets() {
    QHash<QString, CachedAsset> assets;
    QSqlQuery query(QSqlDatabase::database(connection_));
    query.setForwardOnly(true);
    TextPool uploaders;
    if (query.exec(QStringLiteral("SELECT path, sha1, uploader, uploader_ip FROM asset"))) {
        while (query.next()) {
            assets.insert(query.value(0).toString(),
                          CachedAsset{query.value(1).toString(),
                                      uploaders.share(query.value(2).toString()),
                                      uploaders.share(query.value(3).toString())});
        }
    }
    return assets;
}

bool ResultsCache::store(Asset const& asset, QString const& contentSha1,
                         ParsedResultsFile const& parsed) {
    QSqlDatabase db = QSqlDatabase::database(connection_);
    if (!insert_) {
        insert_ = std::make_unique<QSqlQuery>(db);
        if (!insert_->prepare(QStringLiteral(
                "INSERT OR REPLACE INTO asset (path, sha1, uploader, uploader_ip, readable,"
                " serial, started, results) VALUES (?, ?, ?, ?, ?, ?, ?, ?)"))) {
            QString const reason = insert_->lastError().text();
            insert_.reset();
            return fail(QStringLiteral("%1: %2").arg(filePath(), reason));
        }
    }
    if (uncommitted_ == 0 && !db.transaction()) {
        return fail(QStringLiteral("%1: %2").arg(filePath(), db.lastError().text()));
    }
    ++uncommitted_;
    insert_->addBindValue(asset.path);
    insert_->addBindValue(contentSha1);
    insert_->addBindValue(asset.uploader);
    insert_->addBindValue(asset.uploaderIp);
    insert_->addBindValue(parsed.readable ? 1 : 0);
    insert_->addBindValue(parsed.serial);
    insert_->addBindValue(parsed.started);
    insert_->addBindValue(encodeResults(parsed.results));
    if (!insert_->exec()) {
        return fail(QStringLiteral("%1: %2").arg(filePath(), insert_->lastError().text()));
    }
    return uncommitted_ < kRowsPerCommit || flush();
}

bool ResultsCache::flush() {
    if (uncommitted_ == 0) {
        return true;
    }
    uncommitted_ = 0;
    QSqlDatabase db = QSqlDatabase::database(connection_);
    if (!db.commit()) {
        QString const reason = db.lastError().text();
        db.rollback();
        return fail(QStringLiteral("%1: %2").arg(filePath(), reason));
    }
    return true;
}

bool ResultsCache::reconcile(std::vector<Asset> const& relabelled, QStringList const& gone) {
    if (!flush()) {
        return false;
    }
    QSqlDatabase db = QSqlDatabase::database(connection_);
    if (!db.transaction()) {
        return fail(QStringLiteral("%1: %2").arg(filePath(), db.lastError().text()));
    }
    QSqlQuery update(db);
    update.prepare(QStringLiteral("UPDATE asset SET uploader = ?, uploader_ip = ? WHERE path = ?"));
    for (Asset const& asset : relabelled) {
        update.addBindValue(asset.uploader);
        update.addBindValue(asset.uploaderIp);
        update.addBindValue(asset.path);
        if (!update.exec()) {
            QString const reason = update.lastError().text();
            db.rollback();
            return fail(QStringLiteral("%1: %2").arg(filePath(), reason));
        }
    }
    QSqlQuery remove(db);
    remove.prepare(QStringLiteral("DELETE FROM asset WHERE path = ?"));
    for (QString const& path : gone) {
        remove.addBindValue(path);
        if (!remove.exec()) {
            QString const reason = remove.lastError().text();
            db.rollback();
            return fail(QStringLiteral("%1: %2").arg(filePath(), reason));
        }
    }
    if (!db.commit()) {
        return fail(QStringLiteral("%1: %2").arg(filePath(), db.lastError().text()));
    }
    return true;
}

std::vector<CachedRun> ResultsCache::runs() {
    std::vector<CachedRun> runs;
    if (!flush()) {
        return runs;
    }
    QSqlQuery query(QSqlDatabase::database(connection_));
    query.setForwardOnly(true);
    if (query.exec(QStringLiteral("SELECT COUNT(*) FROM asset")) && query.next()) {
        runs.reserve(query.value(0).toULongLong());
    }
    if (!query.exec(QStringLiteral("SELECT path, uploader, uploader_ip, readable, serial, started,"
                                   " CAST(results AS BLOB) FROM asset"))) {
        fail(QStringLiteral("%1: %2").arg(filePath(), query.lastError().text()));
        return runs;
    }
    TextPool names;
    TextPool uploaders;
    while (query.next()) {
        CachedRun run;
        run.path = query.value(0).toString();
        run.uploader = uploaders.share(query.value(1).toString());
        run.uploaderIp = uploaders.share(query.value(2).toString());
        run.parsed.readable = query.value(3).toInt() != 0;
        run.parsed.serial = query.value(4).toString();
        run.parsed.started = query.value(5).toString();
        run.parsed.results = decodeResults(query.value(6).toByteArray(), names);
        runs.push_back(std::move(run));
    }
    return runs;
}

} // namespace yield
