#include "yield/SummaryText.h"

#include <algorithm>

namespace yield {

QString yieldText(Yield const& yield) {
    if (yield.boards == 0) {
        return QStringLiteral("no boards");
    }
    return QStringLiteral("%1% (%2 of %3 boards)")
        .arg(100.0 * yield.passed / yield.boards, 0, 'f', 1)
        .arg(yield.passed)
        .arg(yield.boards);
}

QString displayName(QString const& name) {
    return name.isEmpty() ? QStringLiteral("(test without a name)") : name;
}

std::vector<std::pair<QString, int>> mostFailing(YieldFigures const& figures, std::size_t count) {
    std::vector<std::pair<QString, int>> tests(figures.failures.begin(), figures.failures.end());
    std::stable_sort(tests.begin(), tests.end(),
                     [](auto const& a, auto const& b) { return a.second > b.second; });
    if (tests.size() > count) {
        tests.resize(count);
    }
    return tests;
}

QString summaryText(YieldFigures const& figures) {
    QString text;
    text += QStringLiteral("Runs: %1 (%2 unassigned, %3 incomplete)\n")
                .arg(figures.runs)
                .arg(figures.unassignedRuns)
                .arg(figures.incompleteRuns);
    text += QStringLiteral("Boards: %1\n").arg(figures.firstPass.boards);
    text += QStringLiteral("First-pass yield: %1\n").arg(yieldText(figures.firstPass));
    text += QStringLiteral("Final yield: %1\n").arg(yieldText(figures.final));
    QStringList failing;
    for (auto const& [name, runs] : mostFailing(figures, 3)) {
        failing.append(QStringLiteral("%1 (%2 runs)").arg(displayName(name)).arg(runs));
    }
    text +=
        QStringLiteral("Most failing tests: %1\n")
            .arg(failing.isEmpty() ? QStringLiteral("none") : failing.join(QStringLiteral(", ")));
    if (!figures.unreadable.isEmpty()) {
        text += QStringLiteral("Unreadable files: %1\n").arg(figures.unreadable.size());
        for (QString const& path : figures.unreadable) {
            text += QStringLiteral("  %1\n").arg(path);
        }
    }
    return text;
}

} // namespace yield
