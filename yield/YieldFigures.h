#pragma once

// The test engineer's figures over the cached runs: boards and their first
// and latest runs, yields, failing tests, retests, days and stations.

#include "yield/ResultsCache.h"

#include <QDate>
#include <QString>
#include <QStringList>

#include <map>
#include <optional>
#include <vector>

namespace yield {

// Boards are selected by the day of their first run, Unassigned runs by
// their own; an invalid date leaves that end open.
struct Selection {
    QDate since;
    QDate until;
    bool contains(QDate const& day) const {
        return (!since.isValid() || day >= since) && (!until.isValid() || day <= until);
    }
};

struct Yield {
    int boards = 0;
    int passed = 0;
    // Nothing when there are no boards.
    std::optional<double> fraction() const {
        if (boards == 0) {
            return std::nullopt;
        }
        return static_cast<double>(passed) / boards;
    }
};

struct DayFigures {
    Yield firstPass;
    int runs = 0;
};

struct StationFigures {
    // The uploader of the station's latest run; empty when not known.
    QString uploader;
    Yield firstPass;
    int runs = 0;
};

struct YieldFigures {
    int runs = 0;
    int unassignedRuns = 0;
    int incompleteRuns = 0;
    Yield firstPass;
    Yield final;
    std::map<QString, int> failures;
    std::map<QString, int> notRun;
    std::map<int, int> retests;
    std::map<QDate, DayFigures> days;
    QStringList unreadable;
    std::map<QString, StationFigures> stations;
};

inline QString const kStationUnknown = QStringLiteral("station unknown");

YieldFigures computeFigures(std::vector<CachedRun> const& runs, Selection const& selection);

} // namespace yield
