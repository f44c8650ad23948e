#pragma once

// The few lines the program prints on the terminal.

#include "yield/YieldFigures.h"

#include <QString>

namespace yield {

QString summaryText(YieldFigures const& figures);

// "85.0% (85 of 100 boards)", or "no boards".
QString yieldText(Yield const& yield);

// The tests that failed in most runs, most first, ties by name.
std::vector<std::pair<QString, int>> mostFailing(YieldFigures const& figures, std::size_t count);

} // namespace yield
