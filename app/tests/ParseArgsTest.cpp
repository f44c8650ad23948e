// The command line and the default results file name.

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

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
        int usage; // 0: none, 1: exactly the usage text, 2: after getopt's own complaint
    } const cases[] = {
        {{"-fout.txt", "-x"}, true, true, "out.txt", 0},
        {{"-xf", "a b.txt"}, true, true, "a b.txt", 0},
        {{"-f", ""}, true, false, "", 0},
        {{"-f", "caf\xc3\xa9.txt"}, true, false, "caf\xc3\xa9.txt", 0},
        {{"stray", "-x"}, true, true, "", 0},
        {{"-h"}, false, false, "", 1},
        {{"-?"}, false, false, "", 1},
        {{"-x", "-h", "-f", "late.txt"}, false, true, "", 1},
        {{"-f"}, false, false, "", 2},
        {{"-z"}, false, false, "", 2},
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
        if (c.usage == 2) {
            ASSERT_GE(err.size(), std::string(kUsage).size()) << what;
            EXPECT_EQ(err.substr(err.size() - std::string(kUsage).size()), kUsage) << what;
        } else {
            EXPECT_EQ(err, c.usage == 1 ? kUsage : "") << what;
        }
    }
}

// Local time, in a zone that is not UTC.
TEST(ParseArgs, DefaultFileNameHasSerialAndLocalTime) {
    ::setenv("TZ", "FPT-5", 1);
    ::tzset();
    auto const named = [] {
        std::time_t const now = std::time(nullptr);
        char stamp[16];
        std::strftime(stamp, sizeof stamp, "%Y%m%d-%H%M%S", std::localtime(&now));
        return "/home/transfer/log/front_panel_test_AB123-" + std::string(stamp) + ".txt";
    };
    std::string const before = named();
    std::string const name = createDefaultFilename(QStringLiteral("AB123")).toStdString();
    EXPECT_TRUE(name == before || name == named()) << name;
}
