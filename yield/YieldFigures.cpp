#include "yield/YieldFigures.h"

#include <QHash>
#include <QSet>

#include <algorithm>

namespace yield {
namespace {

bool passed(ParsedResultsFile const& run) {
    return !run.results.empty() &&
           std::all_of(run.results.begin(), run.results.end(),
                       [](ResultLine const& line) { return line.outcome == Outcome::Passed; });
}

QDate dayOf(CachedRun const& run) {
    return QDate::fromString(run.parsed.started.left(10), Qt::ISODate);
}

// Runs of one board in the order they were made; runs started in the same
// minute go by asset path.
bool earlier(CachedRun const* a, CachedRun const* b) {
    if (a->parsed.started != b->parsed.started) {
        return a->parsed.started < b->parsed.started;
    }
    return a->path < b->path;
}

QString stationOf(CachedRun const& run) {
    return run.uploaderIp.isEmpty() ? kStationUnknown : run.uploaderIp;
}

void countRun(YieldFigures& figures, CachedRun const& run) {
    ++figures.runs;
    if (run.parsed.results.empty()) {
        ++figures.incompleteRuns;
    }
    // A test counts once per run, however often its line appears.
    QSet<QString> failed;
    QSet<QString> notRun;
    for (ResultLine const& line : run.parsed.results) {
        if (line.outcome == Outcome::Failed && !failed.contains(line.name)) {
            failed.insert(line.name);
            ++figures.failures[line.name];
        } else if (line.outcome == Outcome::NotRun && !notRun.contains(line.name)) {
            notRun.insert(line.name);
            ++figures.notRun[line.name];
        }
    }
    ++figures.stations[stationOf(run)].runs;
}

} // namespace

YieldFigures computeFigures(std::vector<CachedRun> const& runs, Selection const& selection) {
    YieldFigures figures;
    QHash<QString, std::vector<CachedRun const*>> boards;
    std::vector<CachedRun const*> selectedRuns;
    for (CachedRun const& run : runs) {
        if (!run.parsed.readable) {
            figures.unreadable.append(run.path);
        } else if (run.parsed.serial == kUnassignedSerial) {
            if (selection.contains(dayOf(run))) {
                ++figures.unassignedRuns;
                selectedRuns.push_back(&run);
            }
        } else {
            boards[run.parsed.serial].push_back(&run);
        }
    }
    figures.unreadable.sort();

    for (auto& boardRuns : boards) {
        std::sort(boardRuns.begin(), boardRuns.end(), earlier);
        CachedRun const& first = *boardRuns.front();
        QDate const firstDay = dayOf(first);
        if (!selection.contains(firstDay)) {
            continue;
        }
        bool const firstPassed = passed(first.parsed);
        for (Yield* yield : {&figures.firstPass, &figures.days[firstDay].firstPass,
                             &figures.stations[stationOf(first)].firstPass}) {
            ++yield->boards;
            yield->passed += firstPassed ? 1 : 0;
        }
        ++figures.final.boards;
        figures.final.passed += passed(boardRuns.back()->parsed) ? 1 : 0;
        ++figures.retests[static_cast<int>(boardRuns.size()) - 1];
        for (CachedRun const* run : boardRuns) {
            ++figures.days[dayOf(*run)].runs;
            selectedRuns.push_back(run);
        }
    }

    // Each station is named by the uploader of its latest run.
    std::map<QString, CachedRun const*> latest;
    for (CachedRun const* run : selectedRuns) {
        countRun(figures, *run);
        CachedRun const*& station = latest[stationOf(*run)];
        if (station == nullptr || earlier(station, run)) {
            station = run;
        }
    }
    for (auto const& [address, run] : latest) {
        figures.stations[address].uploader = run->uploader;
    }
    return figures;
}

} // namespace yield
