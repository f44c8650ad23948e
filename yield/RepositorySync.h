#pragma once

// Brings the cache up to the repository: reads the whole assets listing,
// downloads each results asset that is new or whose sha1 changed (never
// one cached with the same sha1), and only once the listing is complete
// forgets what the repository no longer holds.

#include "yield/ResultsCache.h"
#include "yield/Transport.h"

#include <QString>
#include <QUrl>

namespace yield {

struct SyncOutcome {
    bool ok = false;
    // One line for the operator when not ok.
    QString error;
    int listed = 0;
    int downloaded = 0;
};

class RepositorySync {
public:
    RepositorySync(Transport& transport, ResultsCache& cache, QUrl repository, QString account);
    SyncOutcome run();

private:
    QString describe(Response const& response, QUrl const& url) const;

    Transport& transport_;
    ResultsCache& cache_;
    QUrl repository_;
    QString account_;
};

} // namespace yield
