#pragma once

// One results file to the artifact repository: a multipart form POST over
// HTTPS, authorised with the enciphered credential, three tries with a
// 10-second wait each. Everything it has to say goes to the Qt debug channel.

#include <array>
#include <cstdint>

#include <QByteArray>
#include <QString>

#include "upload/KeyDerivation.h"
#include "upload/SecureBytes.h"

class QNetworkReply;
class QNetworkRequest;

class NexusUpload {
public:
    static constexpr int kAttempts = 3;
    static constexpr qint64 kReplyTimeoutMs = 10000;

    NexusUpload();
    ~NexusUpload();
    NexusUpload(NexusUpload const&) = delete;
    NexusUpload& operator=(NexusUpload const&) = delete;

    // Up to kAttempts calls of uploadSingleTry with no pause between them.
    // The key material exists only for the duration of this call.
    bool upload(QByteArray const& credential, QString const& address, QString const& filePath,
                QString const& targetDir);

    // One POST of filePath into targetDir; credential is the enciphered
    // block, deciphered with the current key and IV.
    bool uploadSingleTry(QByteArray const& credential, QString const& address,
                         QString const& filePath, QString const& targetDir);

    // The HTTP status of the last try's answer; 0 when it got none.
    int lastHttpStatus() const { return m_lastStatus; }

    // One authorised GET (one try, the same time-out): the HTTP status, 0
    // when there was no answer, and the answer's body.
    int fetch(QByteArray const& credential, QString const& address, QByteArray* body);

    // A descriptor that turns readable when the program must end (its
    // termination signal's self-pipe): no further try is made, and a try in
    // flight is abandoned at once, so the caller can leave the file pending.
    // -1, the default: none. One per process, as signals are.
    static void setStopDescriptor(int fd);
    // Whether that descriptor is readable now.
    static bool stopRequested();

    // Derives key and IV from the provisioned seed and discard count.
    void createKeys();
    // Zeroes key and IV.
    void wipeKeys();

private:
    // Zeroes a buffer when it is released, provided nothing shares it by
    // then: Qt copies header values by sharing, and writing to a shared
    // QByteArray would only detach and zero a fresh copy.
    struct WipedOnRelease {
        QByteArray bytes;
        ~WipedOnRelease();
    };

    bool decipher(QByteArray const& credential, nexus::SecureBytes& plain) const;
    // Sets the basic Authorization header from the deciphered credential,
    // which is wiped; the header's buffer is wiped when authorization goes.
    static void authorize(QNetworkRequest& request, nexus::SecureBytes& plain,
                          WipedOnRelease& authorization);
    // Spins the event loop until the reply is finished (true) or the
    // time-out has passed (aborted, false).
    static bool waitForReply(QNetworkReply& reply);

    nexus::Key key;
    nexus::Iv iv;
    int m_lastStatus = 0;
};
