// The upload against the test repository server over real TLS on loopback.
// The test CA is added to Qt's default trusted CAs: that is trust
// configuration, certificate verification stays on throughout.

#include "upload/NexusUpload.h"
#include "upload/ProductionArtifactsNexusRepo.h"
#include "upload/tests/UploadTestSupport.h"

#include <memory>
#include <string>
#include <vector>

#include <QByteArray>
#include <QDir>
#include <QElapsedTimer>
#include <QHostAddress>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QTcpServer>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

using namespace uploadtest;

QString headerValue(QJsonObject const& record, QString const& name) {
    for (QJsonValue const& header : record["headers"].toArray()) {
        QJsonArray const pair = header.toArray();
        if (pair[0].toString().compare(name, Qt::CaseInsensitive) == 0) {
            return pair[1].toString();
        }
    }
    return {};
}

// tools/nexus_server in a child process, listening on a free loopback port.
class RepositoryServer {
public:
    RepositoryServer(QString const& pkiDir, QString const& mode, QString const& credentialFile)
        : storage_(work_.filePath("storage")), records_(work_.filePath("records.jsonl")) {
        process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process_.start(QStringLiteral(FPT_TEST_PYTHON),
                       {QStringLiteral(FPT_TEST_NEXUS_SERVER), "--host", "127.0.0.1", "--port", "0",
                        "--cert", pkiDir + "/server.crt", "--key", pkiDir + "/server.key",
                        "--credential-file", credentialFile, "--storage-dir", storage_,
                        "--record-file", records_, "--mode", mode});
        QRegularExpression const ready("listening on https://127\\.0\\.0\\.1:(\\d+)");
        QByteArray banner;
        while (port_ == 0 && process_.waitForReadyRead(10000)) {
            banner += process_.readAll();
            auto const match = ready.match(QString::fromUtf8(banner));
            if (match.hasMatch()) {
                port_ = match.captured(1).toUShort();
            }
        }
    }
    ~RepositoryServer() {
        process_.kill();
        process_.waitForFinished(5000);
    }
    RepositoryServer(RepositoryServer const&) = delete;
    RepositoryServer& operator=(RepositoryServer const&) = delete;

    quint16 port() const { return port_; }
    QString storage() const { return storage_; }

    std::vector<QJsonObject> records() const {
        std::vector<QJsonObject> out;
        for (QByteArray const& line : readFile(records_).split('\n')) {
            if (!line.isEmpty()) {
                out.push_back(QJsonDocument::fromJson(line).object());
            }
        }
        return out;
    }

private:
    QTemporaryDir work_;
    QString storage_;
    QString records_;
    QProcess process_;
    quint16 port_ = 0;
};

QString addressAt(quint16 port) {
    return ProductionArtifactsNexusRepo::requestAddress(QString("https://127.0.0.1:%1").arg(port));
}

// A loopback port that nobody listens on.
quint16 unusedPort() {
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    quint16 const port = probe.serverPort();
    probe.close();
    return port;
}

class NexusUploadOverTls : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        pki_ = new QTemporaryDir();
        for (char const* name : {"trusted", "untrusted"}) {
            QProcess make;
            make.setProcessChannelMode(QProcess::ForwardedChannels);
            make.start(QStringLiteral(FPT_TEST_MAKE_PKI), {pki_->filePath(name)});
            ASSERT_TRUE(make.waitForFinished(60000));
            ASSERT_EQ(make.exitCode(), 0);
        }
        auto const ca = QSslCertificate::fromPath(pki_->filePath("trusted/ca.crt"));
        ASSERT_EQ(ca.size(), 1);
        QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
        configuration.setCaCertificates(configuration.caCertificates() + ca);
        QSslConfiguration::setDefaultConfiguration(configuration);
    }
    static void TearDownTestSuite() {
        delete pki_;
        pki_ = nullptr;
    }

    void SetUp() override {
        ASSERT_TRUE(files_.isValid());
        resultsPath_ = files_.filePath("front_panel_test_123-20261122-0815.txt");
        writeFile(resultsPath_, results_);
    }

    static QString trusted() { return pki_->filePath("trusted"); }
    static QString untrusted() { return pki_->filePath("untrusted"); }

    static QTemporaryDir* pki_;
    QTemporaryDir files_;
    QString resultsPath_;
    // Line ends of both kinds, non-ASCII, a NUL: the file goes as it is.
    QByteArray const results_ = QByteArray("CV084 Front Panel Test\r\nF3 Button: PASSED: Test "
                                           "Completed\n\xc3\xa9\xff",
                                           56) +
                                QByteArray(1, '\0') + "end\n";
};

QTemporaryDir* NexusUploadOverTls::pki_ = nullptr;

TEST_F(NexusUploadOverTls, SendsTheMultipartFormAndTheRepositoryStoresTheFile) {
    struct Case {
        char const* serial;
        char const* storedUnder;
    };
    // An empty serial doubles the slash; it is sent as it is and the
    // repository normalises it.
    for (Case const& c :
         {Case{"123", "CV084/123/front_panel_test"}, Case{"", "CV084/front_panel_test"}}) {
        SCOPED_TRACE(c.serial);
        RepositoryServer server(trusted(), "normal", QStringLiteral(FPT_TEST_CREDENTIAL_FILE));
        ASSERT_NE(server.port(), 0);
        QString const targetDir =
            ProductionArtifactsNexusRepo::generateTargetDir("CV084", c.serial, "front_panel_test");

        DebugMessages messages;
        NexusUpload uploader;
        EXPECT_TRUE(uploader.upload(ProductionArtifactsNexusRepo::credentialBlock(),
                                    addressAt(server.port()), resultsPath_, targetDir));
        EXPECT_EQ(messages.lines(), std::vector<std::string>{"nexusUpload() successful"});
        EXPECT_TRUE(messages.others().empty());
        EXPECT_TRUE(keysWiped(uploader));

        auto const records = server.records();
        ASSERT_EQ(records.size(), 1u);
        QJsonObject const& request = records[0];
        EXPECT_EQ(request["method"].toString(), "POST");
        EXPECT_EQ(request["path"].toString(), "/service/rest/v1/components");
        EXPECT_EQ(request["query"].toString(), "repository=vy_production_artifacts");
        EXPECT_EQ(request["status"].toInt(), 204);

        QString const authorization = headerValue(request, "Authorization");
        // Neither side is printed on failure: in a production build this is
        // the factory's credential, and test logs are kept.
        ASSERT_TRUE(authorization.startsWith("Basic "));
        EXPECT_TRUE(QByteArray::fromBase64(authorization.mid(6).toLatin1()) ==
                    provisionedCredential())
            << "the Authorization header does not carry the provisioned credential";

        QRegularExpression const form(
            "^multipart/form-data; boundary=\"(boundary_\\.oOo\\._[^\"]+)\"$");
        auto const match = form.match(headerValue(request, "Content-Type"));
        ASSERT_TRUE(match.hasMatch()) << headerValue(request, "Content-Type").toStdString();
        QByteArray const boundary = match.captured(1).toLatin1();

        QByteArray const fileName = "front_panel_test_123-20261122-0815.txt";
        QByteArray const expectedBody =
            "--" + boundary + "\r\n" +
            "Content-Disposition: form-data; name=\"raw.asset1\"; filename=\"" + fileName +
            "\"\r\n" + "Content-Type: text/plain\r\n\r\n" + results_ + "\r\n" + "--" + boundary +
            "\r\n" + "Content-Disposition: form-data; name=\"raw.directory\"\r\n\r\n" +
            targetDir.toUtf8() + "\r\n" + "--" + boundary + "\r\n" +
            "Content-Disposition: form-data; name=\"raw.asset1.filename\"\r\n\r\n" + fileName +
            "\r\n" + "--" + boundary + "--\r\n";
        QByteArray const body =
            QByteArray::fromBase64(request["body_base64"].toString().toLatin1());
        EXPECT_EQ(body, expectedBody);
        EXPECT_EQ(headerValue(request, "Content-Length"), QString::number(expectedBody.size()));

        EXPECT_EQ(readFile(server.storage() + "/" + c.storedUnder + "/" + fileName), results_);

        QByteArray const password =
            provisionedCredential().mid(provisionedCredential().indexOf(':') + 1);
        for (std::string const& line : messages.lines()) {
            EXPECT_EQ(line.find(password.toStdString()), std::string::npos);
        }
    }
}

TEST_F(NexusUploadOverTls, RefusalsCostThreeAttemptsAndReturnFalse) {
    QString const wrongCredential = files_.filePath("wrong-credential");
    writeFile(wrongCredential, "fpt-upload:not-the-provisioned-password");

    struct Case {
        char const* what;
        QString pki;
        char const* mode;
        QString serverCredential;
        bool listening;
        int status;          // recorded per request; 0 when none reaches the server
        QString attemptLine; // %1 is the address
    };
    std::vector<Case> const cases = {
        {"wrong credential", trusted(), "normal", wrongCredential, true, 401,
         "nexusUpload() failed: Host requires authentication"},
        {"server error", trusted(), "error500", QStringLiteral(FPT_TEST_CREDENTIAL_FILE), true, 500,
         "nexusUpload() failed: Error transferring %1 - server replied: Internal Server Error"},
        {"no listener", trusted(), "normal", QStringLiteral(FPT_TEST_CREDENTIAL_FILE), false, 0,
         "nexusUpload() failed: Connection refused"},
        {"untrusted certificate", untrusted(), "normal", QStringLiteral(FPT_TEST_CREDENTIAL_FILE),
         true, 0, "nexusUpload() failed: SSL handshake failed"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.what);
        std::unique_ptr<RepositoryServer> server;
        quint16 port = 0;
        if (c.listening) {
            server = std::make_unique<RepositoryServer>(c.pki, c.mode, c.serverCredential);
            ASSERT_NE(server->port(), 0);
            port = server->port();
        } else {
            port = unusedPort();
        }

        DebugMessages messages;
        NexusUpload uploader;
        EXPECT_FALSE(uploader.upload(ProductionArtifactsNexusRepo::credentialBlock(),
                                     addressAt(port), resultsPath_,
                                     "/CV084/123/front_panel_test/"));
        QString const attemptLine =
            c.attemptLine.contains("%1") ? c.attemptLine.arg(addressAt(port)) : c.attemptLine;
        EXPECT_EQ(messages.lines(), failedUploadLines(attemptLine.toStdString()));
        EXPECT_TRUE(messages.others().empty());
        EXPECT_TRUE(keysWiped(uploader));

        if (server) {
            auto const records = server->records();
            EXPECT_EQ(records.size(), c.status == 0 ? 0u : 3u);
            for (QJsonObject const& record : records) {
                EXPECT_EQ(record["status"].toInt(), c.status);
            }
            EXPECT_TRUE(QDir(server->storage())
                            .entryList(QDir::NoDotAndDotDot | QDir::AllEntries)
                            .isEmpty());
        }
    }
}

// The one slow test: a server that takes the request and never answers costs
// three full waits.
TEST_F(NexusUploadOverTls, ServerThatNeverAnswersTimesOutThreeTimes) {
    RepositoryServer server(trusted(), "hang", QStringLiteral(FPT_TEST_CREDENTIAL_FILE));
    ASSERT_NE(server.port(), 0);

    DebugMessages messages;
    NexusUpload uploader;
    QElapsedTimer elapsed;
    elapsed.start();
    EXPECT_FALSE(uploader.upload(ProductionArtifactsNexusRepo::credentialBlock(),
                                 addressAt(server.port()), resultsPath_,
                                 "/CV084/123/front_panel_test/"));
    EXPECT_GE(elapsed.elapsed(), 3 * NexusUpload::kReplyTimeoutMs);
    EXPECT_EQ(messages.lines(), failedUploadLines("nexusUpload() upload timeout."));
    EXPECT_TRUE(keysWiped(uploader));

    auto const records = server.records();
    ASSERT_EQ(records.size(), 3u);
    for (QJsonObject const& record : records) {
        EXPECT_TRUE(record["status"].isNull());
    }
}

} // namespace
