#include "upload/NexusUpload.h"
#include "upload/CredentialCipher.h"
#include "upload/KeyDerivation.h"
#include "upload/ProductionArtifactsNexusRepo.h"
#include "upload/Provisioning.h"
#include "upload/SecureBytes.h"
#include "upload/tests/UploadTestSupport.h"

#include <string>
#include <vector>

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

using namespace uploadtest;

TEST(ProductionArtifactsNexusRepo, GenerateTargetDirFillsThreePartsVerbatim) {
    struct Case {
        char const* a;
        char const* b;
        char const* c;
        char const* expected;
    };
    for (Case const& t :
         {Case{"CV084", "123", "front_panel_test", "/CV084/123/front_panel_test/"},
          Case{"CV084", "", "front_panel_test", "/CV084//front_panel_test/"},
          Case{"CV084", "%2 %1", "front_panel_test", "/CV084/%2 %1/front_panel_test/"},
          Case{"CV084", "a/b", "c d", "/CV084/a/b/c d/"}}) {
        EXPECT_EQ(ProductionArtifactsNexusRepo::generateTargetDir(t.a, t.b, t.c),
                  QString::fromUtf8(t.expected));
    }
}

TEST(ProductionArtifactsNexusRepo, CredentialBlockDeciphersToTheProvisionedCredential) {
    QByteArray const block = ProductionArtifactsNexusRepo::credentialBlock();
    ASSERT_EQ(block.size(), 112);

    NexusUpload uploader;
    uploader.createKeys();
    nexus::SecureBytes plain;
    ASSERT_TRUE(nexus::decipherCredential(reinterpret_cast<std::uint8_t const*>(block.constData()),
                                          static_cast<std::size_t>(block.size()),
                                          uploader.currentKey(), uploader.currentIv(), plain));
    // Compared without printing either side: in a production build this is
    // the factory's credential, and test logs are kept.
    EXPECT_TRUE(QByteArray(reinterpret_cast<char const*>(plain.data()),
                           static_cast<int>(plain.size())) == provisionedCredential())
        << "the provisioned block does not decipher to the credential file's content";
}

TEST(ProductionArtifactsNexusRepo, PlainPasswordIsInNoBuildOutput) {
    QByteArray const credential = provisionedCredential();
    QByteArray const password = credential.mid(credential.indexOf(':') + 1);
    ASSERT_GE(password.size(), 8);
    for (char const* path : {FPT_TEST_PROVISIONED_SOURCE, FPT_TEST_UPLOAD_LIBRARY,
                             FPT_TEST_GENERATOR, "/proc/self/exe"}) {
        SCOPED_TRACE(path);
        QByteArray const content = readFile(QString::fromUtf8(path));
        ASSERT_FALSE(content.isEmpty());
        EXPECT_FALSE(content.contains(password));
        EXPECT_FALSE(content.contains(password.toBase64()));
    }
}

TEST(NexusUpload, KeysExistOnlyBetweenCreateAndWipe) {
    NexusUpload uploader;
    EXPECT_TRUE(keysWiped(uploader));

    uploader.createKeys();
    nexus::Key expectedKey{};
    nexus::Iv expectedIv{};
    nexus::deriveKeyMaterial(nexus::provisioned::kKeySeed, nexus::provisioned::kKeyDiscard,
                             expectedKey, expectedIv);
    EXPECT_EQ(uploader.currentKey(), expectedKey);
    EXPECT_EQ(uploader.currentIv(), expectedIv);
    EXPECT_FALSE(keysWiped(uploader));

    uploader.wipeKeys();
    EXPECT_TRUE(keysWiped(uploader));
}

// Failures that happen before any network access: each attempt logs its own
// line, the last adds "aborting", the result is false and the keys are gone.
TEST(NexusUpload, FailuresBeforeTheRequestAreRetriedThreeTimes) {
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    QString const present = dir.filePath("front_panel_test_123-20260101.txt");
    writeFile(present, "results\n");
    QString const missing = dir.filePath("missing/front_panel_test_123.txt");
    QString const targetDir =
        ProductionArtifactsNexusRepo::generateTargetDir("CV084", "123", "front_panel_test");
    // Nothing listens there, and it is never reached.
    QString const address = ProductionArtifactsNexusRepo::requestAddress("https://127.0.0.1:9");

    struct Case {
        char const* what;
        QByteArray credential;
        QString path;
        char const* attemptLine;
    };
    for (Case const& c :
         {Case{"missing results file", ProductionArtifactsNexusRepo::credentialBlock(), missing,
               "Could not open file"},
          Case{"credential block not a whole cipher block", QByteArray(15, 'x'), present,
               "nexusUpload() failed"},
          Case{"empty credential block", QByteArray(), present, "nexusUpload() failed"}}) {
        SCOPED_TRACE(c.what);
        DebugMessages messages;
        NexusUpload uploader;
        EXPECT_FALSE(uploader.upload(c.credential, address, c.path, targetDir));
        EXPECT_EQ(messages.lines(), failedUploadLines(c.attemptLine));
        EXPECT_TRUE(messages.others().empty());
        EXPECT_TRUE(keysWiped(uploader));
    }
}

TEST(ProductionArtifactsNexusRepo, UploadOfMissingFileFailsAndWipesTheCallersKeys) {
    DebugMessages messages;
    NexusUpload uploader;
    ProductionArtifactsNexusRepo repo;
    EXPECT_FALSE(repo.upload(
        uploader, "/nonexistent/front_panel_test_1.txt",
        ProductionArtifactsNexusRepo::generateTargetDir("CV084", "1", "front_panel_test")));
    // "Could not open file" rather than "nexusUpload() failed" also shows that
    // the provisioned block deciphered with the derived keys.
    EXPECT_EQ(messages.lines(), failedUploadLines("Could not open file"));
    EXPECT_TRUE(keysWiped(uploader));

    DebugMessages again;
    EXPECT_FALSE(repo.upload("/nonexistent/front_panel_test_1.txt", "/CV084/1/front_panel_test/"));
    EXPECT_EQ(again.lines(), failedUploadLines("Could not open file"));
}

// The build-time generator refuses whatever would not make a working
// 112-byte block, and says so without echoing the credential.
TEST(CredentialBlockGenerator, RefusesBadProvisioningAndWritesGoodOne) {
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    struct Case {
        char const* what;
        QByteArray credential;
        char const* seed;
        char const* baseUrl;
        bool accepted;
    };
    QByteArray const user = "fpt-upload:";
    auto ofLength = [&](int total) { return user + QByteArray(total - user.size(), 'Q'); };
    std::vector<Case> const cases = {
        {"96 bytes", ofLength(96), "12345", "https://nexus.cv084.test", true},
        {"111 bytes plus line break", ofLength(111) + "\n", "0xdeadbeef", "https://h:8443/", true},
        {"95 bytes", ofLength(95), "1", "https://nexus.cv084.test", false},
        {"112 bytes", ofLength(112), "1", "https://nexus.cv084.test", false},
        {"no colon", QByteArray(100, 'Q'), "1", "https://nexus.cv084.test", false},
        {"empty user", ":" + QByteArray(100, 'Q'), "1", "https://nexus.cv084.test", false},
        {"line break inside", ofLength(60) + "\n" + QByteArray(40, 'Q'), "1",
         "https://nexus.cv084.test", false},
        {"seed over 32 bits", ofLength(100), "4294967296", "https://nexus.cv084.test", false},
        {"plain http", ofLength(100), "1", "http://nexus.cv084.test", false},
        {"address with a path", ofLength(100), "1", "https://nexus.cv084.test/x", false},
    };
    int index = 0;
    for (Case const& c : cases) {
        SCOPED_TRACE(c.what);
        QString const credentialPath = dir.filePath(QString("credential-%1").arg(index));
        QString const output = dir.filePath(QString("provisioned-%1.cpp").arg(index++));
        writeFile(credentialPath, c.credential);
        QProcess generator;
        generator.start(QStringLiteral(FPT_TEST_GENERATOR),
                        {"--credential-file", credentialPath, "--seed", c.seed, "--discard", "7",
                         "--base-url", c.baseUrl, "--output", output});
        ASSERT_TRUE(generator.waitForFinished(10000));
        QByteArray const errors = generator.readAllStandardError();
        EXPECT_EQ(generator.exitCode() == 0, c.accepted) << errors.toStdString();
        EXPECT_EQ(QFile::exists(output), c.accepted);
        EXPECT_FALSE(errors.contains("QQQQQQQQ"));
        if (c.accepted) {
            QByteArray const source = readFile(output);
            EXPECT_FALSE(source.contains("QQQQQQQQ"));
            EXPECT_EQ(source.count("0x"), 112); // the block, byte by byte; seed is decimal
        } else {
            EXPECT_TRUE(errors.startsWith("fpt_nexus_credential_block: ")) << errors.toStdString();
        }
    }
}

} // namespace
