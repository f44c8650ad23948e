#include "upload/NexusUpload.h"
#include "upload/CredentialCipher.h"
#include "upload/ProductionArtifactsNexusRepo.h"
#include "upload/tests/UploadTestSupport.h"

#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

using namespace uploadtest;

TEST(ProductionArtifactsNexusRepo, GenerateTargetDirFillsThreePartsVerbatim) {
    EXPECT_EQ(ProductionArtifactsNexusRepo::generateTargetDir("CV084", "123", "front_panel_test"),
              "/CV084/123/front_panel_test/");
    EXPECT_EQ(ProductionArtifactsNexusRepo::generateTargetDir("CV084", "", "front_panel_test"),
              "/CV084//front_panel_test/");
    EXPECT_EQ(ProductionArtifactsNexusRepo::generateTargetDir("CV084", "%2 %1", "c"),
              "/CV084/%2 %1/c/");
}

TEST(ProductionArtifactsNexusRepo, PlainPasswordIsInNoBuildOutput) {
    QByteArray credential = readFile(FPT_TEST_CREDENTIAL_FILE).trimmed();
    QByteArray const password = credential.mid(credential.indexOf(':') + 1);
    ASSERT_GE(password.size(), 8);
    for (char const* path : {FPT_TEST_PROVISIONED_SOURCE, FPT_TEST_UPLOAD_LIBRARY,
                             FPT_TEST_GENERATOR, "/proc/self/exe"}) {
        QByteArray const content = readFile(path);
        ASSERT_FALSE(content.isEmpty()) << path;
        EXPECT_FALSE(content.contains(password) || content.contains(password.toBase64())) << path;
    }
}

// The key and IV exist only inside upload(): a block enciphered with an
// all-zero key deciphers (and the attempt gets as far as the missing file)
// only while they are wiped; the provisioned block only while they are set.
TEST(NexusUpload, KeyMaterialLivesOnlyInsideUploadAndEveryFailureIsRetried) {
    nexus::Key const zeroKey{};
    nexus::Iv const zeroIv{};
    std::vector<std::uint8_t> zeroKeyBlock;
    std::uint8_t const plain[] = {'u', ':', 'p'};
    ASSERT_TRUE(nexus::encipherCredential(plain, sizeof plain, zeroKey, zeroIv, zeroKeyBlock));
    QByteArray const underZeroKey(reinterpret_cast<char const*>(zeroKeyBlock.data()),
                                  static_cast<int>(zeroKeyBlock.size()));
    QString const missing = "/nonexistent/front_panel_test_1.txt";
    QString const address = ProductionArtifactsNexusRepo::requestAddress("https://127.0.0.1:9");
    QString const dir = "/CV084/1/front_panel_test/";

    NexusUpload uploader;
    DebugMessages messages;
    EXPECT_FALSE(uploader.uploadSingleTry(underZeroKey, address, missing, dir));
    EXPECT_FALSE(ProductionArtifactsNexusRepo().upload(uploader, missing, dir));
    EXPECT_FALSE(uploader.uploadSingleTry(underZeroKey, address, missing, dir));
    std::vector<std::string> expected = {"Could not open file"};
    for (std::string const& line : failedUploadLines("Could not open file")) {
        expected.push_back(line);
    }
    expected.push_back("Could not open file");
    EXPECT_EQ(messages.lines(), expected);

    DebugMessages broken;
    EXPECT_FALSE(uploader.upload(QByteArray(15, 'x'), address, missing, dir));
    EXPECT_EQ(broken.lines(), failedUploadLines("nexusUpload() failed"));
}

// The build-time generator refuses whatever would not make a working
// 112-byte block, and says so without echoing the credential.
TEST(CredentialBlockGenerator, RefusesBadProvisioningAndWritesGoodOne) {
    QTemporaryDir dir;
    QByteArray const user = "fpt-upload:";
    auto ofLength = [&](int total) { return user + QByteArray(total - user.size(), 'Q'); };
    struct Case {
        QByteArray credential;
        char const* seed;
        char const* baseUrl;
        bool accepted;
    };
    for (Case const& c :
         {Case{ofLength(96), "12345", "https://nexus.cv084.test", true},
          Case{ofLength(111) + "\n", "0xdeadbeef", "https://h:8443/", true},
          Case{ofLength(95), "1", "https://h", false}, Case{ofLength(112), "1", "https://h", false},
          Case{":" + QByteArray(100, 'Q'), "1", "https://h", false},
          Case{ofLength(100), "4294967296", "https://h", false},
          Case{ofLength(100), "1", "http://h", false}}) {
        SCOPED_TRACE(c.credential.size());
        QString const output = dir.filePath("provisioned.inc");
        QFile::remove(output);
        ASSERT_TRUE(writeFile(dir.filePath("credential"), c.credential));
        QProcess generator;
        generator.start(FPT_TEST_GENERATOR,
                        {"--credential-file", dir.filePath("credential"), "--seed", c.seed,
                         "--discard", "7", "--base-url", c.baseUrl, "--output", output});
        ASSERT_TRUE(generator.waitForFinished(10000));
        QByteArray const errors = generator.readAllStandardError();
        EXPECT_EQ(generator.exitCode() == 0, c.accepted) << errors.toStdString();
        EXPECT_EQ(readFile(output).count("0x"), c.accepted ? 120 : 0);
        EXPECT_FALSE(errors.contains("QQQQ") || readFile(output).contains("QQQQ"));
    }
}

} // namespace
