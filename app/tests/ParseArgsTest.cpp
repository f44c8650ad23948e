// The command line and the default results file name.

#include <gtest/gtest.h>

#include <QDateTime>
#include <QRegularExpression>

#include "app/ParseArgs.h"

namespace {

char const* const kUsage =
    "Usage: front_panel_test -x -h -? -f output/filename.txt\n"
    "Where:-\n"
    "  -? or -h      Prints ths help message\n"
    "  -x            Runs the testapp even if a valid FPGA bitfile is not loaded.\n"
    "  -f <filename> Writes the output to the passed filename instead of "
    "/home/transfer/log/front_panel_test_nnnnnn_nnnnnn.txt\n";

} // namespace

TEST(ParseArgs, Options) {
    struct Case {
        std::vector<std::string> args;
        bool ok;
        bool noImage;
        char const* file;
        bool usage;
    } const cases[] = {
        {{}, true, false, "", false},
        {{"-x"}, true, true, "", false},
        {{"-f", "out/r.txt"}, true, false, "out/r.txt", false},
        {{"-fout.txt", "-x"}, true, true, "out.txt", false},
        {{"-xf", "a b.txt"}, true, true, "a b.txt", false},
        {{"-f", ""}, true, false, "", false},
        {{"-f", "caf\xc3\xa9.txt"}, true, false, "caf\xc3\xa9.txt", false},
        {{"stray", "-x"}, true, true, "", false},
        {{"-h"}, false, false, "", true},
        {{"-?"}, false, false, "", true},
        {{"-x", "-h", "-f", "late.txt"}, false, true, "", true},
        {{"-f"}, false, false, "", true},
        {{"-z"}, false, false, "", true},
    };
    for (auto const& c : cases) {
        std::vector<std::string> storage{"front_panel_test"};
        storage.insert(storage.end(), c.args.begin(), c.args.end());
        std::vector<char*> argv;
        for (auto& s : storage)
            argv.push_back(s.data());
        argv.push_back(nullptr);
        std::string const what = storage.size() > 1 ? storage[1] : "(none)";

        parseArgs parsed;
        testing::internal::CaptureStderr();
        bool const ok = parsed.run(static_cast<int>(storage.size()), argv.data());
        std::string const err = testing::internal::GetCapturedStderr();
        EXPECT_EQ(ok, c.ok) << what;
        EXPECT_EQ(parsed.runWithoutSelfTestImage, c.noImage) << what;
        EXPECT_EQ(parsed.outputFileName.toStdString(), c.file) << what;
        if (c.usage) {
            // getopt's own complaint about a bad option comes first.
            ASSERT_GE(err.size(), std::string(kUsage).size()) << what;
            EXPECT_EQ(err.substr(err.size() - std::string(kUsage).size()), kUsage) << what;
        } else {
            EXPECT_EQ(err, "") << what;
        }
    }
}

TEST(ParseArgs, HelpPrintsExactlyTheUsageText) {
    std::string storage[] = {"front_panel_test", "-h"};
    char* argv[] = {storage[0].data(), storage[1].data(), nullptr};
    parseArgs parsed;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(parsed.run(2, argv));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), kUsage);
}

TEST(ParseArgs, DefaultFileNameHasSerialAndLocalTime) {
    QDateTime const before = QDateTime::currentDateTime();
    QString const name = createDefaultFilename(QStringLiteral("AB123"));
    QDateTime const after = QDateTime::currentDateTime();
    QRegularExpression const re(
        QStringLiteral("^/home/transfer/log/front_panel_test_AB123-(\\d{8}-\\d{6})\\.txt$"));
    auto const m = re.match(name);
    ASSERT_TRUE(m.hasMatch()) << name.toStdString();
    QDateTime const stamp = QDateTime::fromString(m.captured(1), QStringLiteral("yyyyMMdd-HHmmss"));
    ASSERT_TRUE(stamp.isValid());
    EXPECT_GE(stamp, before.addSecs(-1));
    EXPECT_LE(stamp, after);
}
