#pragma once

// What the program knows of the repository between runs, in one SQLite file:
// per results asset, the sha1 the listing gave for it and the parse result
// of the content downloaded, written together in one transaction. A run cut
// off anywhere leaves whole entries only, each true to its sha1, and the
// next run downloads just what is missing or changed.

#include "yield/AssetListing.h"
#include "yield/ResultsFileParser.h"

#include <QHash>
#include <QString>
#include <QStringList>

#include <memory>
#include <vector>

class QSqlQuery;

namespace yield {

struct CachedAsset {
    QString sha1;
    QString uploader;
    QString uploaderIp;
};

struct CachedRun {
    QString path;
    QString uploader;
    QString uploaderIp;
    ParsedResultsFile parsed;
};

class ResultsCache {
public:
    // The cache file inside directory, which is made if missing.
    explicit ResultsCache(QString directory);
    ~ResultsCache();
    ResultsCache(ResultsCache const&) = delete;
    ResultsCache& operator=(ResultsCache const&) = delete;

    // What open() does with a cache another version of the program made:
    // start it again (its entries are downloaded again), or refuse it when
    // nothing could be downloaded to fill it.
    enum class OtherVersion { StartAgain, Refuse };

    // False, with the reason in error(), when the file cannot be opened or
    // made, or is refused.
    bool open(OtherVersion otherVersion = OtherVersion::StartAgain);
    QString const& error() const { return error_; }
    QString filePath() const;

    QHash<QString, CachedAsset> assets();
    // The content's sha1 and its parse result go in one row, so an entry is
    // always whole. Rows are committed in batches (one commit per file
    // would be most of a first sync's time); flush() commits the rest.
    bool store(Asset const& asset, QString const& contentSha1, ParsedResultsFile const& parsed);
    bool flush();
    // Once the whole listing is read, in one transaction: take up the
    // uploader names and addresses the listing now gives for cached
    // assets, and forget those the repository no longer holds.
    bool reconcile(std::vector<Asset> const& relabelled, QStringList const& gone);
    std::vector<CachedRun> runs();

private:
    bool fail(QString const& what);

    QString directory_;
    QString connection_;
    QString error_;
    std::unique_ptr<QSqlQuery> insert_;
    int uncommitted_ = 0;
};

} // namespace yield
