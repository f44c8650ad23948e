#pragma once

// One page of the repository's assets listing (its REST assets interface):
// the assets and the token that asks for the next page.

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <optional>
#include <vector>

namespace yield {

struct Asset {
    // Without a leading "/", e.g. "CV084/1234/front_panel_test/results.txt".
    QString path;
    QString downloadUrl;
    QString sha1;
    // Empty where the repository does not say.
    QString uploader;
    QString uploaderIp;
};

struct AssetPage {
    std::vector<Asset> assets;
    // Empty on the last page.
    QString continuationToken;
};

inline QString const kRepositoryName = QStringLiteral("vy_production_artifacts");

// Nothing when the page is not the listing's JSON.
std::optional<AssetPage> parseAssetPage(QByteArray const& json);

// Whether the path is a station's results upload, CV084/<serial>/front_panel_test/<file>;
// the repository holds other products' and programs' files too.
bool isResultsPath(QString const& path);

// The listing's address under the repository's base address, for the first
// page (empty token) or the one the token names.
QUrl assetListingUrl(QUrl const& base, QString const& continuationToken);

} // namespace yield
