#include "upload/tests/UploadTestSupport.h"

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
    // printf 'u:p' | openssl enc -aes-256-cbc -K 00..00 -iv 00..00
    QByteArray const underZeroKey = QByteArray::fromHex("89d5bcec6f3d9c684892a162dfdefa44");
    QString const missing = "/nonexistent/front_panel_test_1.txt";
    QString const address = ProductionArtifactsNexusRepo::requestAddress("https://127.0.0.1:9");
    QString const dir = "/CV084/1/front_panel_test/";
    NexusUpload uploader;
    DebugMessages messages;
    EXPECT_FALSE(uploader.uploadSingleTry(underZeroKey, address, missing, dir));
    EXPECT_FALSE(ProductionArtifactsNexusRepo().upload(uploader, missing, dir));
    EXPECT_FALSE(uploader.uploadSingleTry(underZeroKey, address, missing, dir));
    std::vector<std::string> expected = failedUploadLines("Could not open file");
    expected.insert(expected.begin(), "Could not open file");
    expected.push_back("Could not open file");
    EXPECT_EQ(messages.lines(), expected);

    DebugMessages broken;
    EXPECT_FALSE(uploader.upload(QByteArray(15, 'x'), address, missing, dir));
    EXPECT_EQ(broken.lines(), failedUploadLines("nexusUpload() failed"));
}

// The build-time generator refuses a credential whose block would not be the
// provisioned 112 bytes.
TEST(CredentialBlockGenerator, TakesCredentialsOf96To111Bytes) {
    QTemporaryDir dir;
    for (auto [length, accepted] : {std::pair{96, true}, {111, true}, {95, false}, {112, false}}) {
        ASSERT_TRUE(writeFile(dir.filePath("c"), "u:" + QByteArray(length - 2, 'Q') + "\n"));
        int const status = QProcess::execute(
            FPT_TEST_GENERATOR,
            {"--credential-file", dir.filePath("c"), "--seed", "0xdeadbeef", "--discard", "7",
             "--base-url", "https://h:8443/", "--output", dir.filePath("provisioned.inc")});
        EXPECT_EQ(status == 0, accepted) << length;
    }
}

} // namespace
