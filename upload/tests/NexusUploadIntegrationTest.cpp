// The upload against the test repository server over real TLS on loopback.
// The test CA is added to Qt's default trusted CAs: that is trust
// configuration, certificate verification stays on throughout.

#include "upload/tests/UploadTestSupport.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSslConfiguration>

namespace {

using namespace uploadtest;

// tools/nexus_server in a child process on a free loopback port, with a
// fresh CA that the upload is told to trust or not; its address and records.
struct RepositoryServer {
    explicit RepositoryServer(bool trusted) {
        EXPECT_EQ(QProcess::execute(FPT_TEST_MAKE_PKI, {work.path()}), 0);
        if (trusted) {
            QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
            configuration.addCaCertificates(work.filePath("ca.crt"));
            QSslConfiguration::setDefaultConfiguration(configuration);
        }
        process.start(FPT_TEST_PYTHON,
                      {FPT_TEST_NEXUS_SERVER, "--port", "0", "--cert", work.filePath("server.crt"),
                       "--key", work.filePath("server.key"), "--credential-file",
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
    RepositoryServer server(true);
    QTemporaryDir files;
    QString const path = files.filePath("front_panel_test_123-20261122-0815.txt");
    static char const kResults[] = "CV084\r\nF3: PASSED\n\xc3\xa9\0end\n"; // sent as it is
    QByteArray const results(kResults, sizeof kResults - 1);
    ASSERT_TRUE(writeFile(path, results));
    DebugMessages messages;
    EXPECT_TRUE(NexusUpload().upload(ProductionArtifactsNexusRepo::credentialBlock(),
                                     server.address, path, "/CV084/123/front_panel_test/"));
    EXPECT_EQ(messages.lines(), std::vector<std::string>{"nexusUpload() successful"});

    QJsonObject const record =
        QJsonDocument::fromJson(readFile(server.work.filePath("records"))).object();
    EXPECT_EQ(record["status"].toInt(), 204); // the server checked the credential
    QByteArray const body = QByteArray::fromBase64(record["body_base64"].toString().toLatin1());
    QByteArray const boundary = body.left(body.indexOf("\r\n")).mid(2);
    auto part = [&](QByteArray const& disposition, QByteArray const& more,
                    QByteArray const& content) {
        return "--" + boundary + "\r\nContent-Disposition: form-data; name=\"raw." + disposition +
               "\r\n" + more + "\r\n" + content + "\r\n";
    };
    QByteArray const name = "front_panel_test_123-20261122-0815.txt";
    EXPECT_EQ(body,
              part("asset1\"; filename=\"" + name + "\"", "Content-Type: text/plain\r\n", results) +
                  part("directory\"", "", "/CV084/123/front_panel_test/") +
                  part("asset1.filename\"", "", name) + "--" + boundary + "--\r\n");
}

TEST(NexusUploadOverTls, UntrustedServerOrNoneCostsThreeAttempts) {
    RepositoryServer untrusted(false);
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
