#pragma once

// A unit test whose runs are scripted: each run takes the next (state, run
// code) pair, or repeats the last one, and counts that it ran.

#include <QString>
#include <algorithm>
#include <functional>
#include <utility>
#include <vector>

#include "app/FrontPanelTestManager.h"
#include "app/UnitTest.h"

namespace fpt::testing {

class ScriptedUnitTest : public UnitTest {
public:
    struct Outcome {
        int32_t state;
        int code;
    };

    ScriptedUnitTest(QString testName, std::vector<Outcome> outcomes = {})
        : UnitTest(std::move(testName)), m_outcomes(std::move(outcomes)) {}

    int run(FrontPanelTestManager& manager) override {
        ++runs;
        if (onRun)
            onRun(manager);
        Outcome const o = m_outcomes.empty() ? Outcome{Passed, RunFinished}
                                             : m_outcomes[std::min(m_next, m_outcomes.size() - 1)];
        ++m_next;
        state = o.state;
        result = o.state == Passed   ? QStringLiteral("PASSED: Test Completed")
                 : o.state == Failed ? QStringLiteral("FAILED User Reported Failure")
                                     : QStringLiteral("Test Not Completed");
        return o.code;
    }

    int runs = 0;
    // Runs first on every run, e.g. to poll keys through the manager.
    std::function<void(FrontPanelTestManager&)> onRun;

private:
    std::vector<Outcome> m_outcomes;
    std::size_t m_next = 0;
};

} // namespace fpt::testing
