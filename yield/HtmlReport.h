#pragma once

// One self-contained page of the figures: inline SVG charts with the tables
// behind them, no script and nothing fetched from elsewhere, so that it
// opens anywhere, can be mailed and kept; the same figures give the same
// bytes, so two pages can be compared.

#include "yield/YieldFigures.h"

#include <QByteArray>

namespace yield {

QByteArray htmlReport(YieldFigures const& figures, Selection const& selection);

} // namespace yield
