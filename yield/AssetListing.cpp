#include "yield/AssetListing.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>
#include <QUrlQuery>

namespace yield {

std::optional<AssetPage> parseAssetPage(QByteArray const& json) {
    QJsonParseError error{};
    QJsonDocument const document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject()) {
        return std::nullopt;
    }
    QJsonObject const root = document.object();
    QJsonValue const items = root.value(QStringLiteral("items"));
    QJsonValue const token = root.value(QStringLiteral("continuationToken"));
    if (!items.isArray() || !(token.isNull() || token.isString() || token.isUndefined())) {
        return std::nullopt;
    }
    AssetPage page;
    page.continuationToken = token.toString();
    for (QJsonValue const& value : items.toArray()) {
        QJsonObject const item = value.toObject();
        Asset asset;
        asset.path = item.value(QStringLiteral("path")).toString();
        while (asset.path.startsWith(QLatin1Char('/'))) {
            asset.path.remove(0, 1);
        }
        asset.downloadUrl = item.value(QStringLiteral("downloadUrl")).toString();
        asset.sha1 = item.value(QStringLiteral("checksum"))
                         .toObject()
                         .value(QStringLiteral("sha1"))
                         .toString()
                         .toLower();
        asset.uploader = item.value(QStringLiteral("uploader")).toString();
        asset.uploaderIp = item.value(QStringLiteral("uploaderIp")).toString();
        if (asset.path.isEmpty() || asset.downloadUrl.isEmpty()) {
            return std::nullopt;
        }
        page.assets.push_back(std::move(asset));
    }
    return page;
}

bool isResultsPath(QString const& path) {
    QStringList const parts = path.split(QLatin1Char('/'));
    return parts.size() == 4 && parts[0] == QLatin1String("CV084") && !parts[1].isEmpty() &&
           parts[2] == QLatin1String("front_panel_test") && !parts[3].isEmpty();
}

QUrl assetListingUrl(QUrl const& base, QString const& continuationToken) {
    QUrl url = base;
    QString path = url.path();
    while (path.endsWith(QLatin1Char('/'))) {
        path.chop(1);
    }
    url.setPath(path + QStringLiteral("/service/rest/v1/assets"));
    QUrlQuery query;
    query.addQueryItem(QStringLiteral("repository"), kRepositoryName);
    if (!continuationToken.isEmpty()) {
        // Tokens are opaque: every reserved character is escaped.
        query.addQueryItem(QStringLiteral("continuationToken"),
                           QString::fromLatin1(QUrl::toPercentEncoding(continuationToken)));
    }
    url.setQuery(query);
    return url;
}

} // namespace yield
