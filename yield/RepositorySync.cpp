#include "yield/RepositorySync.h"

#include <QCryptographicHash>
#include <QSet>

namespace yield {

RepositorySync::RepositorySync(Transport& transport, ResultsCache& cache, QUrl repository,
                               QString account)
    : transport_(transport), cache_(cache), repository_(std::move(repository)),
      account_(std::move(account)) {}

QString RepositorySync::describe(Response const& response, QUrl const& url) const {
    QString const repository = repository_.toDisplayString();
    switch (response.kind) {
    case Response::Kind::Refused:
        return QStringLiteral("the repository %1 refused the account \"%2\" (HTTP %3)")
            .arg(repository, account_)
            .arg(response.status);
    case Response::Kind::Failed:
        return QStringLiteral("the repository %1 answered HTTP %2 for %3")
            .arg(repository)
            .arg(response.status)
            .arg(url.toDisplayString());
    case Response::Kind::Unreachable:
    case Response::Kind::Ok:
        break;
    }
    return QStringLiteral("cannot reach %1: %2").arg(repository, response.error);
}

SyncOutcome RepositorySync::run() {
    SyncOutcome outcome;
    // The listing in full before anything is forgotten: a listing cut short
    // says nothing about the assets it did not reach.
    std::vector<Asset> listed;
    QSet<QString> paths;
    QSet<QString> tokens;
    QString token;
    do {
        QUrl const url = assetListingUrl(repository_, token);
        Response const response = transport_.get(url);
        if (response.kind != Response::Kind::Ok) {
            outcome.error = describe(response, url);
            return outcome;
        }
        std::optional<AssetPage> page = parseAssetPage(response.body);
        if (!page) {
            outcome.error =
                QStringLiteral("the repository %1 sent a listing that cannot be read (%2)")
                    .arg(repository_.toDisplayString(), url.toDisplayString());
            return outcome;
        }
        for (Asset& asset : page->assets) {
            if (isResultsPath(asset.path) && !paths.contains(asset.path)) {
                paths.insert(asset.path);
                listed.push_back(std::move(asset));
            }
        }
        token = page->continuationToken;
        if (!token.isEmpty() && tokens.contains(token)) {
            outcome.error =
                QStringLiteral(
                    "the repository %1 lists the same page again (continuation token %2)")
                    .arg(repository_.toDisplayString(), token);
            return outcome;
        }
        tokens.insert(token);
    } while (!token.isEmpty());
    outcome.listed = static_cast<int>(listed.size());

    QHash<QString, CachedAsset> const cached = cache_.assets();
    std::vector<Asset const*> wanted;
    std::vector<QUrl> urls;
    for (Asset const& asset : listed) {
        auto const found = cached.find(asset.path);
        // A listing without a sha1 cannot tell a change: what is cached stays.
        bool const fresh =
            found == cached.end() || (!asset.sha1.isEmpty() && found->sha1 != asset.sha1);
        if (fresh) {
            wanted.push_back(&asset);
            urls.push_back(repository_.resolved(QUrl(asset.downloadUrl)));
        }
    }
    bool failed = false;
    transport_.getEach(urls, [&](std::size_t index, Response const& response) {
        if (response.kind != Response::Kind::Ok) {
            outcome.error = describe(response, urls[index]);
            failed = true;
            return false;
        }
        // Kept under the listing's sha1: a file replaced between the
        // listing and its download is listed with a new sha1 next time and
        // fetched again.
        Asset const& asset = *wanted[index];
        QString const sha1 =
            !asset.sha1.isEmpty()
                ? asset.sha1
                : QString::fromLatin1(
                      QCryptographicHash::hash(response.body, QCryptographicHash::Sha1).toHex());
        if (!cache_.store(asset, sha1, parseResultsFile(response.body))) {
            outcome.error = QStringLiteral("cache %1").arg(cache_.error());
            failed = true;
            return false;
        }
        ++outcome.downloaded;
        return true;
    });
    if (failed) {
        return outcome;
    }
    if (!cache_.reconcile(listed, cached)) {
        outcome.error = QStringLiteral("cache %1").arg(cache_.error());
        return outcome;
    }
    outcome.ok = true;
    return outcome;
}

} // namespace yield
