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

#include <vector>

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

    // False, with the reason in error(), when the file cannot be opened or
    // made.
    bool open();
    QString const& error() const { return error_; }
    QString filePath() const;

    QHash<QString, CachedAsset> assets();
    // One transaction: the content's sha1 and its parse result together.
    bool store(Asset const& asset, QString const& contentSha1, ParsedResultsFile const& parsed);
    // Once the whole listing is read: forget what the repository no longer
    // holds and take up the listing's uploader names and addresses.
    // cached is what assets() gave before this run's downloads.
    bool reconcile(std::vector<Asset> const& listed, QHash<QString, CachedAsset> const& cached);
    std::vector<CachedRun> runs();

private:
    bool fail(QString const& what);

    QString directory_;
    QString connection_;
    QString error_;
};

} // namespace yield
