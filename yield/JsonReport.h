#pragma once

// The figures as JSON, for scripts and spreadsheets.

#include "yield/YieldFigures.h"

#include <QByteArray>

namespace yield {

QByteArray jsonReport(YieldFigures const& figures);

} // namespace yield
