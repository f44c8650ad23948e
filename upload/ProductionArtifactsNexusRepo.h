#pragma once

// The factory's artifact repository: where results files go, and with which
// credential. The HTTP work is NexusUpload's.

#include <QByteArray>
#include <QString>

class NexusUpload;

class ProductionArtifactsNexusRepo {
public:
    // "/%1/%2/%3/" filled in order; no escaping, no checks.
    static QString generateTargetDir(QString a, QString b, QString c);

    // Uploads filePath into targetDir of the production-artifacts repository,
    // three tries with a 10-second time-out each. True on success.
    bool upload(QString const& filePath, QString const& targetDir);

    // The same through a caller's NexusUpload, whose key material is wiped
    // again when this returns.
    bool upload(NexusUpload& uploader, QString const& filePath, QString const& targetDir);

    // The provisioned scheme and authority, e.g. "https://nexus.cv084.test".
    static QString baseAddress();
    // The components endpoint of the production-artifacts repository under
    // the given base address.
    static QString requestAddress(QString const& base);
    // Where the repository serves an asset stored into targetDir:
    // base + "/repository/vy_production_artifacts/" + directory + fileName,
    // the directory without doubled slashes, as the repository stores it.
    static QString assetAddress(QString const& base, QString const& targetDir,
                                QString const& fileName);
    // The SHA-1 (lower-case hex) of the asset the repository holds there, as
    // it serves it beside the asset: the HTTP status, 200 when sha1 is set.
    int storedSha1(NexusUpload& uploader, QString const& targetDir, QString const& fileName,
                   QByteArray* sha1);
    // The provisioned, enciphered "user:password".
    static QByteArray credentialBlock();
};
