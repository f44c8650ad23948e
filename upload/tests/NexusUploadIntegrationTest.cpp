// The upload against the test repository server over real TLS on loopback.
// The test CA is added to Qt's default trusted CAs: that is trust
// configuration, certificate verification stays on throughout.

#include "upload/NexusUpload.h"
#include "upload/ProductionArtifactsNexusRepo.h"
#include "upload/tests/UploadTestSupport.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QSslConfiguration>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

using namespace uploadtest;

QTemporaryDir const& pki() {
    static QTemporaryDir dir;
    static bool const made = [] {
        for (QString name : {"trusted", "untrusted"}) {
            if (QProcess::execute(FPT_TEST_MAKE_PKI, {dir.filePath(name)}) != 0) {
                return false;
            }
        }
        QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
        configuration.addCaCertificates(dir.filePath("trusted/ca.crt"));
        QSslConfiguration::setDefaultConfiguration(configuration);
        return true;
    }();
    EXPECT_TRUE(made);
    return dir;
}

// tools/nexus_server in a child process on a free loopback port; the request
// address for it, its records after the upload.
struct RepositoryServer {
    explicit RepositoryServer(QString const& certificates) {
        process.start(FPT_TEST_PYTHON,
                      {FPT_TEST_NEXUS_SERVER, "--port", "0", "--cert", certificates + "/server.crt",
                       "--key", certificates + "/server.key", "--credential-file",
                       FPT_TEST_CREDENTIAL_FILE, "--storage-dir", work.filePath("storage"),
                       "--record-file", work.filePath("records")});
        QRegularExpression const ready("listening on (https://127\\.0\\.0\\.1:\\d+)");
        QByteArray banner;
        while (!ready.match(banner).hasMatch() && process.waitForReadyRead(10000)) {
            banner += process.readAll();
        }
        address = ProductionArtifactsNexusRepo::requestAddress(ready.match(banner).captured(1));
    }
    ~RepositoryServer() {
        process.kill();
        process.waitForFinished();
    }
    QTemporaryDir work;
    QProcess process;
    QString address;
};

TEST(NexusUploadOverTls, SendsTheMultipartFormAndNoRecordHoldsTheCredential) {
    RepositoryServer server(pki().filePath("trusted"));
    QTemporaryDir files;
    QString const path = files.filePath("front_panel_test_123-20261122-0815.txt");
    static char const kResults[] = "CV084\r\nF3: PASSED\n\xc3\xa9\0end\n"; // sent as it is
    QByteArray const results(kResults, sizeof kResults - 1);
    ASSERT_TRUE(writeFile(path, results));
    DebugMessages messages;
    EXPECT_TRUE(NexusUpload().upload(ProductionArtifactsNexusRepo::credentialBlock(),
                                     server.address, path, "/CV084/123/front_panel_test/"));
    EXPECT_EQ(messages.lines(), std::vector<std::string>{"nexusUpload() successful"});

    QByteArray const recorded = readFile(server.work.filePath("records"));
    QJsonObject const record = QJsonDocument::fromJson(recorded).object();
    EXPECT_EQ(record["status"].toInt(), 204); // the server checked the credential
    EXPECT_EQ(record["user"].toString(), "fpt-upload");
    QByteArray const credential = readFile(FPT_TEST_CREDENTIAL_FILE).trimmed();
    EXPECT_FALSE(recorded.contains(credential.toBase64().mid(16)));
    QByteArray boundary;
    for (QJsonValue const header : record["headers"].toArray()) {
        if (header.toArray()[0].toString() == "Content-Type") {
            boundary = header.toArray()[1].toString().section('"', 1, 1).toLatin1();
        }
    }
    auto part = [&](QByteArray const& disposition, QByteArray const& more, QByteArray const& body) {
        return "--" + boundary + "\r\nContent-Disposition: form-data; name=\"raw." + disposition +
               "\r\n" + more + "\r\n" + body + "\r\n";
    };
    QByteArray const name = "front_panel_test_123-20261122-0815.txt";
    EXPECT_EQ(QByteArray::fromBase64(record["body_base64"].toString().toLatin1()),
              part("asset1\"; filename=\"" + name + "\"", "Content-Type: text/plain\r\n", results) +
                  part("directory\"", "", "/CV084/123/front_panel_test/") +
                  part("asset1.filename\"", "", name) + "--" + boundary + "--\r\n");
}

TEST(NexusUploadOverTls, UntrustedServerOrNoneCostsThreeAttempts) {
    RepositoryServer untrusted(pki().filePath("untrusted"));
    QString const nobody = ProductionArtifactsNexusRepo::requestAddress("https://127.0.0.1:9");
    for (auto const& [address, failure] : {std::pair{untrusted.address, "SSL handshake failed"},
                                           std::pair{nobody, "Connection refused"}}) {
        DebugMessages messages;
        EXPECT_FALSE(NexusUpload().upload(ProductionArtifactsNexusRepo::credentialBlock(), address,
                                          FPT_TEST_NEXUS_SERVER, "/CV084/1/front_panel_test/"));
        EXPECT_EQ(messages.lines(),
                  failedUploadLines(std::string("nexusUpload() failed: ") + failure));
    }
    EXPECT_FALSE(QFile::exists(untrusted.work.filePath("records")));
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv); // QNetworkAccessManager wants one
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
