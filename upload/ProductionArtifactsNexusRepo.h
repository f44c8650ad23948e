#pragma once

// The factory's artifact repository: where results files go, and with which
// credential. The HTTP work is NexusUpload's.

#include <QString>

class ProductionArtifactsNexusRepo {
public:
    // "/%1/%2/%3/" filled in order; no escaping, no checks.
    static QString generateTargetDir(QString a, QString b, QString c);

    // Uploads filePath into targetDir of the production-artifacts repository,
    // three tries with a 10-second time-out each. True on success.
    bool upload(QString const& filePath, QString const& targetDir);
};
