#include "yield/RepositorySync.h"

#include "yield/TextPool.h"

#include <QCryptographicHash>
#include <QSet>

#include <algorithm>

namespace yield {

RepositorySync::RepositorySync(Transport& transport, ResultsCache& cache, QUrl repository,
                               QString account, std::size_t downloadsPerGroup)
    : transport_(transport), cache_(cache), repository_(std::move(repository)),
      account_(std::move(account)),
      downloadsPerGroup_(std::max<std::size_t>(1, downloadsPerGroup)) {}

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
    // What is cached but not (yet) listed: after the whole listing, what
    // the repository no longer holds. Nothing is forgotten before then: a
    // listing cut short says nothing about the assets it did not reach.
    QHash<QString, CachedAsset> unlisted = cache_.assets();
    std::vector<Asset> wanted;
    std::vector<Asset> relabelled;
    QSet<QString> paths;
    QSet<QString> tokens;
    TextPool uploaders;
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
            if (!isResultsPath(asset.path) || paths.contains(asset.path)) {
                continue;
            }
            paths.insert(asset.path);
            asset.uploader = uploaders.share(asset.uploader);
            asset.uploaderIp = uploaders.share(asset.uploaderIp);
            auto const found = unlisted.find(asset.path);
            if (found == unlisted.end()) {
                wanted.push_back(std::move(asset));
                continue;
            }
            // A listing without a sha1 cannot tell a change: what is cached
            // stays.
            if (!asset.sha1.isEmpty() && found->sha1 != asset.sha1) {
                wanted.push_back(std::move(asset));
            } else if (found->uploader != asset.uploader || found->uploaderIp != asset.uploaderIp) {
                relabelled.push_back(std::move(asset));
            }
            unlisted.erase(found);
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
    outcome.listed = paths.size();
    paths = {};

    bool failed = false;
    for (std::size_t first = 0; first < wanted.size() && !failed; first += downloadsPerGroup_) {
        std::size_t const end = std::min(wanted.size(), first + downloadsPerGroup_);
        std::vector<QUrl> urls;
        urls.reserve(end - first);
        for (std::size_t i = first; i < end; ++i) {
            urls.push_back(repository_.resolved(QUrl(wanted[i].downloadUrl)));
        }
        transport_.getEach(urls, [&](std::size_t index, Response const& response) {
            if (response.kind != Response::Kind::Ok) {
                outcome.error = describe(response, urls[index]);
                failed = true;
                return false;
            }
            // Kept under the listing's sha1: a file replaced between the
            // listing and its download is listed with a new sha1 next time
            // and fetched again.
            Asset& asset = wanted[first + index];
            QString const sha1 =
                !asset.sha1.isEmpty()
                    ? asset.sha1
                    : QString::fromLatin1(
                          QCryptographicHash::hash(response.body, QCryptographicHash::Sha1)
                              .toHex());
            if (!cache_.store(asset, sha1, parseResultsFile(response.body))) {
                outcome.error = QStringLiteral("cache %1").arg(cache_.error());
                failed = true;
                return false;
            }
            asset = Asset();
            ++outcome.downloaded;
            return true;
        });
    }
    // The downloads stored before a failure are whole: kept for the next run.
    if (!cache_.flush() && !failed) {
        outcome.error = QStringLiteral("cache %1").arg(cache_.error());
        return outcome;
    }
    if (failed) {
        return outcome;
    }
    if (!cache_.reconcile(relabelled, unlisted.keys())) {
        outcome.error = QStringLiteral("cache %1").arg(cache_.error());
        return outcome;
    }
    outcome.ok = true;
    return outcome;
}

} // namespace yield
