#pragma once

// A manager on test doubles, with the screen started, plus the helpers the
// plan's tests share: screen snapshots taken between two key polls, the
// panel's LED and audio-routing lines, encoder turns and the results file.

#include <QFile>
#include <QString>
#include <QStringList>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <vector>

#include "app/testing/ManagerRig.h"

namespace fpt::plan::testing {

using fpt::testing::ManagerRig;
using fpt::testing::ScriptedTerminal;

// A whole 24-row screen from the rows that hold text (everything else
// blank), in the form ScriptedTerminal::screenText() gives.
inline std::string screenOf(std::map<int, std::string> const& rows) {
    std::string out;
    for (int r = 0; r < ScriptedTerminal::kRows; ++r) {
        auto const it = rows.find(r);
        std::string line = it == rows.end() ? std::string() : it->second;
        line.erase(line.find_last_not_of(' ') + 1);
        out += line;
        out += '\n';
    }
    return out;
}

// A line of text as a row shows it when printed at `col`.
inline std::string atCol(int col, std::string const& text) {
    std::string line = std::string(static_cast<std::size_t>(col), ' ') + text;
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

// Description lines are drawn from row 2, column 2; the two prompt lines at
// rows 19 and 21, column 4.
inline void putDescription(std::map<int, std::string>& rows,
                           std::vector<std::string> const& lines) {
    for (std::size_t i = 0; i < lines.size(); ++i)
        rows[2 + static_cast<int>(i)] = atCol(2, lines[i]);
}
inline void putPrompt(std::map<int, std::string>& rows, std::string const& line1,
                      std::string const& line2) {
    rows[19] = atCol(4, line1);
    rows[21] = atCol(4, line2);
}

// Names the cases of a table by their `name` field.
struct CaseName {
    template <class Case>
    std::string operator()(::testing::TestParamInfo<Case> const& param) const {
        return param.param.name;
    }
};

struct PlanRig {
    PlanRig() { rig.mgr().initDisplay(); }

    FrontPanelTestManager& mgr() { return rig.mgr(); }
    ScriptedTerminal& term() { return *rig.terminal; }

    // Records the screen as the next key poll shows it (taken when that
    // poll reads its key, i.e. after it redrew the screen).
    PlanRig& snap() {
        term().action([this] { shots.push_back(term().screenText()); });
        return *this;
    }
    std::string shotRow(std::size_t shot, int row) const {
        return ScriptedTerminal::frameRow(shots.at(shot), row);
    }

    // The manager counts the encoder with a step of -1, so a wheel delta of
    // -1 moves the value up: one step clockwise, one colour on (or one
    // volume step up).
    void turnUpNow(int steps) { rig.encoder->turnNow(-steps); }

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

// The results file, line by line (the text after the last newline, empty for
// a complete file, is dropped).
inline QStringList resultsLines(QString const& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return {QStringLiteral("<cannot open %1>").arg(path)};
    QStringList lines = QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'));
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    return lines;
}

} // namespace fpt::plan::testing
