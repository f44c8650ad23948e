#pragma once

// The few lines the program prints on the terminal.

#include "yield/YieldFigures.h"

#include <QString>

namespace yield {

QString summaryText(YieldFigures const& figures);

// "85.0% (85 of 100 boards)", or "no boards".
QString yieldText(Yield const& yield);

// A test's name as shown; the station's plan has one test without a name
// (the shaft encoder's), whose result line ends after " - ".
QString displayName(QString const& name);

// The tests that failed in most runs, most first, ties by name.
std::vector<std::pair<QString, int>> mostFailing(YieldFigures const& figures, std::size_t count);

} // namespace yield
