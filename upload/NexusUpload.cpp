#include "upload/NexusUpload.h"

#include <cstring>
#include <exception>
#include <memory>

#include <QCoreApplication>
#include <QDebug>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QHttpMultiPart>
#include <QHttpPart>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSocketNotifier>
#include <QTimer>
#include <QUrl>

#include <openssl/crypto.h>
#include <poll.h>

#include "upload/CredentialCipher.h"
#include "upload/Provisioning.h"
#include "upload/SecureBytes.h"

namespace {

// While waiting for the reply the loop sleeps in the event dispatcher; this
// tick bounds the sleep so that the time-out is noticed even when the server
// sends nothing at all.
constexpr int kWaitTickMs = 50;

int g_stopFd = -1;

QHttpPart formField(QByteArray const& disposition, QByteArray const& body) {
    QHttpPart part;
    part.setHeader(QNetworkRequest::ContentDispositionHeader, disposition);
    part.setBody(body);
    return part;
}

} // namespace

NexusUpload::WipedOnRelease::~WipedOnRelease() {
    if (bytes.isDetached())
        OPENSSL_cleanse(bytes.data(), static_cast<std::size_t>(bytes.size()));
}

NexusUpload::NexusUpload() {
    wipeKeys();
}

NexusUpload::~NexusUpload() {
    wipeKeys();
}

void NexusUpload::setStopDescriptor(int fd) {
    g_stopFd = fd;
}

bool NexusUpload::stopRequested() {
    pollfd stop{g_stopFd, POLLIN, 0};
    return g_stopFd >= 0 && ::poll(&stop, 1, 0) == 1;
}

void NexusUpload::createKeys() {
    nexus::Provisioned const provisioned;
    nexus::deriveKeyMaterial(provisioned.keySeed(), provisioned.keyDiscard(), key, iv);
}

void NexusUpload::wipeKeys() {
    OPENSSL_cleanse(key.data(), key.size());
    OPENSSL_cleanse(iv.data(), iv.size());
}

bool NexusUpload::upload(QByteArray const& credential, QString const& address,
                         QString const& filePath, QString const& targetDir) {
    createKeys();
    for (int attempt = 0; attempt < kAttempts && !stopRequested(); ++attempt) {
        bool succeeded = false;
        try {
            succeeded = uploadSingleTry(credential, address, filePath, targetDir);
        } catch (std::exception const&) {
            // Only an allocation failure can get here; it costs this attempt,
            // not the caller's results.
            qDebug() << "nexusUpload() failed";
        }
        if (succeeded) {
            wipeKeys();
            return true;
        }
        qDebug() << "nexusUpload() failed - retrying";
    }
    wipeKeys();
    qDebug() << "nexusUpload() failed - aborting";
    return false;
}

bool NexusUpload::uploadSingleTry(QByteArray const& credential, QString const& address,
                                  QString const& filePath, QString const& targetDir) {
    m_lastStatus = 0;
    nexus::SecureBytes plain;
    if (!decipher(credential, plain)) {
        qDebug() << "nexusUpload() failed";
        return false;
    }

    QString const fileName = QFileInfo(filePath).fileName();

    // The file is read by the multipart body while the request is in flight,
    // so it is declared first and outlives the body, the manager and the
    // reply.
    QFile file(filePath);
    auto multiPart = std::make_unique<QHttpMultiPart>(QHttpMultiPart::FormDataType);
    if (!file.open(QIODevice::ReadOnly)) {
        qDebug() << "Could not open file";
        return false;
    }

    QHttpPart asset;
    asset.setHeader(
        QNetworkRequest::ContentDispositionHeader,
        QStringLiteral("form-data; name=\"raw.asset1\"; filename=\"%1\"").arg(fileName));
    asset.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("text/plain"));
    asset.setBodyDevice(&file);
    multiPart->append(asset);
    multiPart->append(formField("form-data; name=\"raw.directory\"", targetDir.toUtf8()));
    multiPart->append(formField("form-data; name=\"raw.asset1.filename\"", fileName.toUtf8()));

    WipedOnRelease authorization;
    QNetworkRequest request{QUrl(address)};
    authorize(request, plain, authorization);

    QNetworkAccessManager manager;
    std::unique_ptr<QNetworkReply> reply(manager.post(request, multiPart.get()));
    if (!reply) {
        qDebug() << "nexusUpload() manager.post(request, multiPart) == 0";
        return false;
    }
    multiPart.release()->setParent(reply.get());

    if (!waitForReply(*reply))
        return false;

    file.close();
    m_lastStatus = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (reply->error() != QNetworkReply::NoError) {
        qDebug().noquote() << "nexusUpload() failed:" << reply->errorString();
        return false;
    }
    qDebug() << "nexusUpload() successful";
    return true;
}

bool NexusUpload::decipher(QByteArray const& credential, nexus::SecureBytes& plain) const {
    return nexus::decipherCredential(reinterpret_cast<std::uint8_t const*>(credential.constData()),
                                     static_cast<std::size_t>(credential.size()), key, iv, plain);
}

void NexusUpload::authorize(QNetworkRequest& request, nexus::SecureBytes& plain,
                            WipedOnRelease& authorization) {
    // The header value is built in one buffer of its final size, handed to
    // the request by sharing, and zeroed when the caller lets go of it, as
    // are the deciphered bytes and their base64 form (zeroed before sending).
    // Out of our reach stay the copies Qt's network stack makes on its own
    // while sending (its request queue and the TLS layer's buffers), which
    // are freed without being wiped.
    // fromRawData does not copy.
    QByteArray encoded = QByteArray::fromRawData(reinterpret_cast<char const*>(plain.data()),
                                                 static_cast<int>(plain.size()))
                             .toBase64();
    plain.wipe();
    QByteArray const scheme("Basic ");
    authorization.bytes = QByteArray(scheme.size() + encoded.size(), Qt::Uninitialized);
    std::memcpy(authorization.bytes.data(), scheme.constData(),
                static_cast<std::size_t>(scheme.size()));
    std::memcpy(authorization.bytes.data() + scheme.size(), encoded.constData(),
                static_cast<std::size_t>(encoded.size()));
    OPENSSL_cleanse(encoded.data(), static_cast<std::size_t>(encoded.size()));
    request.setRawHeader("Authorization", authorization.bytes);
}

bool NexusUpload::waitForReply(QNetworkReply& reply) {
    QTimer tick;
    tick.start(kWaitTickMs);
    // Wakes the wait the moment the program is told to end.
    std::unique_ptr<QSocketNotifier> stop;
    if (g_stopFd >= 0)
        stop = std::make_unique<QSocketNotifier>(g_stopFd, QSocketNotifier::Read);
    QElapsedTimer timer;
    timer.start();
    while (!reply.isFinished()) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        if (reply.isFinished())
            break; // an answer that came with the stop still counts
        if (stopRequested()) {
            qDebug() << "nexusUpload() interrupted.";
            reply.abort();
            return false;
        }
        if (timer.elapsed() >= kReplyTimeoutMs) {
            qDebug() << "nexusUpload() upload timeout.";
            reply.abort();
            return false;
        }
    }
    return true;
}

int NexusUpload::fetch(QByteArray const& credential, QString const& address, QByteArray* body) {
    createKeys();
    nexus::SecureBytes plain;
    bool const deciphered = decipher(credential, plain);
    wipeKeys();
    if (!deciphered)
        return 0;
    WipedOnRelease authorization;
    QNetworkRequest request{QUrl(address)};
    authorize(request, plain, authorization);
    QNetworkAccessManager manager;
    std::unique_ptr<QNetworkReply> reply(manager.get(request));
    if (!reply || !waitForReply(*reply))
        return 0;
    *body = reply->readAll();
    return reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}
