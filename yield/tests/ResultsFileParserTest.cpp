#include "yield/ResultsFileParser.h"

#include <QStringList>

#include <gtest/gtest.h>

namespace yield {
namespace {

QByteArray const kHeader = "Front Panel Test Log\n~~~~~~~~~~~~~~~~~~~~\n\n"
                           "Tests Started: 14:05 03/02/2026\nSerial No: 1234\n";

struct Case {
    char const* what;
    QByteArray file;
    bool readable;
    char const* serial;
    char const* started;
    // One letter per result line, then the names joined by "|".
    char const* outcomes;
    char const* names;
};

class ResultsFileGrammar : public ::testing::TestWithParam<Case> {};

TEST_P(ResultsFileGrammar, ReadsHeaderAndResultLines) {
    Case const& c = GetParam();
    ParsedResultsFile const parsed = parseResultsFile(c.file);
    SCOPED_TRACE(c.what);
    ASSERT_EQ(parsed.readable, c.readable);
    EXPECT_EQ(parsed.serial, QString::fromUtf8(c.serial));
    EXPECT_EQ(parsed.started, QString::fromUtf8(c.started));
    QString outcomes;
    QStringList names;
    for (ResultLine const& line : parsed.results) {
        outcomes += QLatin1Char(outcomeLetter(line.outcome));
        names.append(line.name);
    }
    EXPECT_EQ(outcomes, QString::fromUtf8(c.outcomes));
    EXPECT_EQ(names.join(QLatin1Char('|')), QString::fromUtf8(c.names));
}

INSTANTIATE_TEST_SUITE_P(
    Lines, ResultsFileGrammar,
    ::testing::Values(
        Case{"the four states, names with blanks and dashes kept",
             kHeader + "PASSED  - Shaft Encoder\nFAIL!!  - Button F3\nNot Run - Audio - Speaker\n"
                       "*ERROR* - Headphones\n",
             true, "1234", "2026-02-03 14:05", "PFNE",
             "Shaft Encoder|Button F3|Audio - Speaker|Headphones"},
        Case{"a failing test's own line during the run is no result",
             kHeader + "FAIL!! - LED Check\nNot Run - LED Check\n", true, "1234",
             "2026-02-03 14:05", "N", "LED Check"},
        Case{"states that are not the station's",
             kHeader + "PASSED - x\nPassed  - x\nFAILED  - x\nPASSED  -x\n", true, "1234",
             "2026-02-03 14:05", "", ""},
        Case{"the shaft encoder test has no name", kHeader + "Not Run - \nPASSED  - LEDs\n", true,
             "1234", "2026-02-03 14:05", "NP", "|LEDs"},
        Case{"header but no result lines: an incomplete run", kHeader, true, "1234",
             "2026-02-03 14:05", "", ""},
        Case{"written on Windows", QByteArray(kHeader + "PASSED  - LEDs\n").replace("\n", "\r\n"),
             true, "1234", "2026-02-03 14:05", "P", "LEDs"},
        Case{"the serial the operator did not enter",
             "Tests Started: 09:00 31/12/2025\nSerial No: Unassigned\nPASSED  - LEDs\n", true,
             "Unassigned", "2025-12-31 09:00", "P", "LEDs"},
        Case{"no serial line",
             "Front Panel Test Log\nTests Started: 14:05 03/02/2026\nPASSED  - LEDs\n", false, "",
             "", "", ""},
        Case{"no start line", "Serial No: 1234\nPASSED  - LEDs\n", false, "", "", "", ""},
        Case{"a start time that is no time",
             "Tests Started: 25:05 03/02/2026\nSerial No: 1234\nPASSED  - LEDs\n", false, "", "",
             "", ""},
        Case{"result lines before the header are not the run's",
             "PASSED  - LEDs\nTests Started: 14:05 03/02/2026\nSerial No: 1234\n", true, "1234",
             "2026-02-03 14:05", "", ""},
        Case{"not a results file at all", QByteArray("\x89PNG\r\n\x1a\n\0\0", 10), false, "", "",
             "", ""}),
    [](::testing::TestParamInfo<Case> const& p) { return "case" + std::to_string(p.index); });

} // namespace
} // namespace yield
