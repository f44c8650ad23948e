// The results file's header and lines, and the board serial number entry.

#include <gtest/gtest.h>

#include <QDateTime>
#include <QRegularExpression>

#include "app/CursesTerminal.h"
#include "app/testing/ManagerRig.h"
#include "app/testing/ScriptedUnitTest.h"
#include "app/tests/TestFiles.h"

using fpt::testing::ManagerRig;
using fpt::testing::ScriptedUnitTest;
using fpt::testing::TempResultsFile;

TEST(ResultsFile, HeaderThenLoggedTextAsItStands) {
    ManagerRig rig;
    TempResultsFile file;
    rig.terminal->word("AB123").key('y');
    rig.mgr().enterBoardSerialNumber();
    rig.mgr().setLogFileLocation(file.path);
    EXPECT_EQ(rig.mgr().logFileLocation(), file.path);

    QDateTime const before = QDateTime::currentDateTime();
    ASSERT_TRUE(rig.mgr().createLogFile());
    QDateTime const after = QDateTime::currentDateTime();
    rig.mgr().log(QStringLiteral("no newline added"));
    rig.mgr().log(QStringLiteral(" - more\n"));

    // Read while the file is still open: every write is already on disk.
    std::string const content = file.content();
    QRegularExpression const re(QStringLiteral(
        "^Front Panel Test Log\n~~~~~~~~~~~~~~~~~~~~\n\nTests Started: (\\d\\d:\\d\\d "
        "\\d\\d/\\d\\d/\\d{4})\nSerial No: AB123\nno newline added - more\n$"));
    auto const m = re.match(QString::fromStdString(content));
    ASSERT_TRUE(m.hasMatch()) << content;
    QString const stamp = m.captured(1);
    EXPECT_TRUE(stamp == before.toString(QStringLiteral("HH:mm dd/MM/yyyy")) ||
                stamp == after.toString(QStringLiteral("HH:mm dd/MM/yyyy")))
        << stamp.toStdString();
}

TEST(ResultsFile, CreatedAgainTruncatedThenResultLinesOnlyForTopLevelTests) {
    ManagerRig rig;
    TempResultsFile file;
    rig.mgr().setLogFileLocation(file.path);
    ASSERT_TRUE(rig.mgr().createLogFile());
    rig.mgr().log(QStringLiteral("first run\n"));
    ASSERT_TRUE(rig.mgr().createLogFile()); // creating again truncates
    EXPECT_EQ(file.content().find("first run"), std::string::npos);
    // No serial number entered yet: the line is there, empty.
    EXPECT_NE(file.content().find("\nSerial No: \n"), std::string::npos);
    std::size_t const headerSize = file.content().size();
    rig.mgr().logUnitTestResults();
    EXPECT_EQ(file.content().size(), headerSize) << "nothing for an empty list";

    auto group = std::make_shared<UnitTestGroup>(QStringLiteral("Button Tests"));
    group->addUnitTest(std::make_shared<ScriptedUnitTest>(QStringLiteral("member")));
    group->state = UnitTest::Failed;
    auto odd = std::make_shared<FailTest>(QStringLiteral("Speaker Output Test"));
    odd->state = 5;
    rig.mgr().addUnitTest(group);
    rig.mgr().addUnitTest(odd);
    rig.mgr().addUnitTest(std::make_shared<FailTest>(QStringLiteral("Headphone Output Test")));
    rig.mgr().logUnitTestResults();
    EXPECT_EQ(file.content().substr(headerSize), "FAIL!!  - Button Tests\n"
                                                 "*ERROR* - Speaker Output Test\n"
                                                 "Not Run - Headphone Output Test\n");
}

TEST(SerialNumber, Entry) {
    struct Case {
        char const* what;
        std::vector<std::string> words;
        std::string confirmKeys; // one per word
        char const* expected;
    } const cases[] = {
        {"accepted with y", {"AB123"}, "y", "AB123"},
        {"any key but n accepts", {"AB123"}, "\n", "AB123"},
        {"empty answer", {""}, "Y", "Unassigned"},
        {"n asks again", {"X1", "X2"}, "ny", "X2"},
        {"N asks again too", {"X1", "", "X3"}, "NnQ", "X3"},
    };
    for (auto const& c : cases) {
        ManagerRig rig;
        bool blockingEcho = true;
        for (std::size_t i = 0; i < c.words.size(); ++i) {
            rig.terminal->word(c.words[i]);
            rig.terminal->action(
                [&] { blockingEcho &= rig.terminal->blocking && rig.terminal->echo; });
            rig.terminal->key(static_cast<unsigned char>(c.confirmKeys[i]));
        }
        EXPECT_EQ(rig.mgr().enterBoardSerialNumber().toStdString(), c.expected) << c.what;
        EXPECT_EQ(rig.mgr().boardSerialNumber().toStdString(), c.expected) << c.what;
        EXPECT_TRUE(rig.terminal->scriptDone()) << c.what;
        EXPECT_TRUE(blockingEcho) << c.what;
        EXPECT_FALSE(rig.terminal->blocking || rig.terminal->echo) << c.what;
        EXPECT_EQ(rig.terminal->wordLimits, std::vector<int>(c.words.size(), 80)) << c.what;
        auto& t = *rig.terminal;
        EXPECT_EQ(t.row(14), "          Enter CV084 PCB Serial No:") << c.what;
        EXPECT_EQ(t.row(16), std::string("          You Entered \"") + c.expected + "\"") << c.what;
        EXPECT_EQ(t.row(18), "          Is that correct? (Y/n):") << c.what;
        EXPECT_TRUE(rig.terminal->isStarted());
        EXPECT_EQ(rig.panel->serviceCalls, 0);
    }
}

TEST(SerialNumber, TypedLineKeepsItsFirstWord) {
    struct Case {
        char const* line;
        int max;
        char const* word;
    } const cases[] = {
        {"AB123", 80, "AB123"}, {"  AB 123", 80, "AB"}, {"\tCV084-7 rest", 80, "CV084-7"},
        {"", 80, ""},           {"    ", 80, ""},       {"abcdefghij", 4, "abcd"},
    };
    for (auto const& c : cases)
        EXPECT_EQ(CursesTerminal::firstWord(c.line, c.max), c.word) << c.line;
    EXPECT_EQ(CursesTerminal::firstWord(std::string(100, 'x'), 80), std::string(80, 'x'));
}
