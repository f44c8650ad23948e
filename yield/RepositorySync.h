#pragma once

// Brings the cache up to the repository: reads the whole assets listing,
// downloads each results asset that is new or whose sha1 changed (never
// one cached with the same sha1), and only once the listing is complete
// forgets what the repository no longer holds.

#include "yield/ResultsCache.h"
#include "yield/Transport.h"

#include <QString>
#include <QUrl>

#include <cstddef>

namespace yield {

struct SyncOutcome {
    bool ok = false;
    // One line for the operator when not ok.
    QString error;
    int listed = 0;
    int downloaded = 0;
};

// Downloads are asked for in groups of this many: the addresses of a whole
// year's files need not be held at once.
constexpr std::size_t kDownloadsPerGroup = 1000;

class RepositorySync {
public:
    RepositorySync(Transport& transport, ResultsCache& cache, QUrl repository, QString account,
                   std::size_t downloadsPerGroup = kDownloadsPerGroup);
    SyncOutcome run();

private:
    QString describe(Response const& response, QUrl const& url) const;

    Transport& transport_;
    ResultsCache& cache_;
    QUrl repository_;
    QString account_;
    std::size_t downloadsPerGroup_;
};

} // namespace yield
