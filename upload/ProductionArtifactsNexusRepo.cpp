#include "upload/ProductionArtifactsNexusRepo.h"

#include <QStringList>

#include "upload/NexusUpload.h"
#include "upload/Provisioning.h"

QString ProductionArtifactsNexusRepo::generateTargetDir(QString a, QString b, QString c) {
    // One multi-argument arg(): a serial number that happens to contain "%2"
    // stays as it is.
    return QStringLiteral("/%1/%2/%3/").arg(a, b, c);
}

bool ProductionArtifactsNexusRepo::upload(QString const& filePath, QString const& targetDir) {
    NexusUpload uploader;
    return upload(uploader, filePath, targetDir);
}

bool ProductionArtifactsNexusRepo::upload(NexusUpload& uploader, QString const& filePath,
                                          QString const& targetDir) {
    return uploader.upload(credentialBlock(), requestAddress(baseAddress()), filePath, targetDir);
}

QString ProductionArtifactsNexusRepo::baseAddress() {
    return QString::fromLatin1(nexus::Provisioned::baseAddress());
}

QString ProductionArtifactsNexusRepo::requestAddress(QString const& base) {
    return base + QStringLiteral("/service/rest/v1/components?repository=vy_production_artifacts");
}

QString ProductionArtifactsNexusRepo::assetAddress(QString const& base, QString const& targetDir,
                                                   QString const& fileName) {
    QStringList const parts = (targetDir + '/' + fileName).split('/', Qt::SkipEmptyParts);
    return base + QStringLiteral("/repository/vy_production_artifacts/") + parts.join('/');
}

int ProductionArtifactsNexusRepo::storedSha1(NexusUpload& uploader, QString const& targetDir,
                                             QString const& fileName, QByteArray* sha1) {
    QByteArray body;
    int const status = uploader.fetch(
        credentialBlock(), assetAddress(baseAddress(), targetDir, fileName) + ".sha1", &body);
    if (status == 200)
        *sha1 = body.trimmed().toLower();
    return status;
}

QByteArray ProductionArtifactsNexusRepo::credentialBlock() {
    nexus::Provisioned const provisioned;
    return QByteArray(reinterpret_cast<char const*>(provisioned.credentialBlock()),
                      static_cast<int>(nexus::kCredentialBlockSize));
}
