#pragma once

// A manager on test doubles, with the screen started, plus the helpers the
// plan's tests share: screen snapshots taken between two key polls, the
// panel's LED and audio-routing lines, encoder turns and jack reports.

#include <QString>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <vector>

#include "app/testing/ManagerRig.h"

namespace fpt::plan::testing {

using fpt::testing::ManagerRig;
using fpt::testing::ScriptedTerminal;

// A line of text as a row shows it when printed at `col`.
inline std::string atCol(int col, std::string const& text) {
    std::string line = std::string(static_cast<std::size_t>(col), ' ') + text;
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

// A whole test screen, as ScriptedTerminal::screenText() gives it: the title
// on row 0, description lines from row 2 at column 2, the two prompt lines at
// rows 19 and 21, column 4; every other row blank.
inline std::string testScreen(std::string const& title, std::vector<std::string> const& lines,
                              std::string const& prompt1, std::string const& prompt2) {
    std::map<int, std::string> rows{{0, title}, {19, atCol(4, prompt1)}, {21, atCol(4, prompt2)}};
    for (std::size_t i = 0; i < lines.size(); ++i)
        rows[2 + static_cast<int>(i)] = atCol(2, lines[i]);
    std::string out;
    for (int r = 0; r < ScriptedTerminal::kRows; ++r)
        out += (rows.count(r) ? rows[r] : std::string()) + '\n';
    return out;
}

// What a run returns and leaves in the test's state and result.
struct Outcome {
    int code;
    int32_t state;
    std::string result;
};
inline Outcome const kPassed{UnitTest::RunFinished, UnitTest::Passed, "PASSED: Test Completed"};

struct PlanRig {
    PlanRig() { rig.mgr().initDisplay(); }

    FrontPanelTestManager& mgr() { return rig.mgr(); }
    ScriptedTerminal& term() { return *rig.terminal; }

    // Runs `test` to the end of the script, which must be used up.
    void expectRun(UnitTest& test, Outcome const& o) {
        EXPECT_EQ(test.run(mgr()), o.code);
        EXPECT_EQ(test.state, o.state);
        EXPECT_EQ(test.result.toStdString(), o.result);
        EXPECT_TRUE(term().scriptDone());
    }

    // Records the screen as the next key poll shows it (taken when that
    // poll reads its key, i.e. after it redrew the screen).
    PlanRig& snap() {
        term().action([this] { shots.push_back(term().screenText()); });
        return *this;
    }
    std::string shotRow(std::size_t shot, int row) const {
        return ScriptedTerminal::frameRow(shots.at(shot), row);
    }
    // Rows 19 and 21 (the prompt) of a snapshot.
    void expectPrompt(std::size_t shot, std::string const& line1, std::string const& line2) const {
        EXPECT_EQ(shotRow(shot, 19), atCol(4, line1)) << "shot " << shot;
        EXPECT_EQ(shotRow(shot, 21), atCol(4, line2)) << "shot " << shot;
    }

    // A turn scripted before `polls` polls. The manager counts the encoder
    // with a step of -1, so a wheel delta of -1 moves the value up: one step
    // clockwise, one colour on (or one volume step up).
    PlanRig& turnUp(int steps, int polls = 1) {
        term().action([this, steps] { rig.encoder->turnNow(-steps); }).noKey(polls);
        return *this;
    }
    // A button press or release scripted before the next poll.
    ScriptedTerminal& press(int button) {
        return term().action([this, button] { rig.keyboard->pressNow(button); });
    }
    ScriptedTerminal& release(int button) {
        return term().action([this, button] { rig.keyboard->releaseNow(button); });
    }

    // The panel reporting the headphone jack ("H0" out, "H1" in) as if the
    // serial link had just been serviced: now, or before the next poll.
    void reportNow(char const* line) { rig.panel->processReceivedLine(QString::fromLatin1(line)); }
    ScriptedTerminal& report(char const* line) {
        return term().action([this, line] { reportNow(line); });
    }

    // Lines sent to the panel that start with `command` ('L' LEDs, 'A' audio
    // routing), in order.
    std::vector<std::string> linesOf(char command, std::size_t from = 0) const {
        std::vector<std::string> out;
        auto const& lines = rig.panel->lines;
        for (std::size_t i = from; i < lines.size(); ++i)
            if (!lines[i].empty() && lines[i][0] == command)
                out.push_back(lines[i]);
        return out;
    }

    ManagerRig rig;
    std::vector<std::string> shots;
};

} // namespace fpt::plan::testing
