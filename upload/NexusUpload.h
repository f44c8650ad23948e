#pragma once

// One results file to the artifact repository: a multipart form POST over
// HTTPS, authorised with the enciphered credential, three tries with a
// 10-second wait each. Everything it has to say goes to the Qt debug channel.

#include <array>
#include <cstdint>

#include <QByteArray>
#include <QString>

#include "upload/KeyDerivation.h"

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
    nexus::Key key;
    nexus::Iv iv;
};
