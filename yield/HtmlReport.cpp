#include "yield/HtmlReport.h"

#include "yield/SummaryText.h"

#include <QStringList>

#include <algorithm>
#include <cmath>

namespace yield {
namespace {

// More days than this are shown per month: a year of a busy line stays
// one small page.
constexpr std::size_t kMostDays = 400;
// Beyond these the tables say how many more there are.
constexpr std::size_t kMostTests = 40;
constexpr int kMostUnreadable = 200;

constexpr int kWidth = 900;
constexpr int kLeft = 50;
constexpr int kRight = 20;
constexpr int kTop = 20;
// Below the baseline: room for one line of labels.
constexpr int kBottom = 60;
// Chart labels are 10px sans-serif, whose glyphs average narrower than
// this: a label's width is bounded without a browser to measure it.
constexpr double kLabelCharWidth = 6.0;
// The Pareto's test names slant up to the right, ending under their bar;
// longer ones are cut (the table and the bar's tip give them whole).
constexpr int kMostLabelChars = 32;
constexpr double kSlant = 35.0;

double labelWidth(QString const& text) {
    return kLabelCharWidth * text.size();
}

QString esc(QString const& text) {
    return text.toHtmlEscaped();
}

QString num(double value) {
    return QString::number(value, 'f', 1);
}

QString percent(Yield const& yield) {
    std::optional<double> const fraction = yield.fraction();
    return fraction ? num(100.0 * *fraction) + QLatin1Char('%') : QStringLiteral("&ndash;");
}

struct Period {
    QString label;
    Yield firstPass;
    int runs = 0;
};

std::vector<Period> periods(YieldFigures const& figures) {
    std::vector<Period> periods;
    bool const monthly = figures.days.size() > kMostDays;
    for (auto const& [date, day] : figures.days) {
        QString const label =
            date.toString(monthly ? QStringLiteral("yyyy-MM") : QStringLiteral("yyyy-MM-dd"));
        if (periods.empty() || periods.back().label != label) {
            periods.push_back(Period{label, {}, 0});
        }
        periods.back().firstPass.boards += day.firstPass.boards;
        periods.back().firstPass.passed += day.firstPass.passed;
        periods.back().runs += day.runs;
    }
    return periods;
}

// The frame of a chart: the value axis from 0 to top with three labels,
// the plot from left to the right margin, bottom under the baseline.
QString frame(int height, double top, QString const& unit, int left = kLeft, int bottom = kBottom) {
    QString svg =
        QStringLiteral("<svg width=\"%1\" height=\"%2\" viewBox=\"0 0 %1 %2\" role=\"img\">")
            .arg(kWidth)
            .arg(height + kTop + bottom);
    for (int step = 0; step <= 2; ++step) {
        int const y = kTop + height - step * height / 2;
        svg += QStringLiteral("<line class=\"grid\" x1=\"%1\" y1=\"%2\" x2=\"%3\" y2=\"%2\"/>"
                              "<text class=\"axis\" x=\"%4\" y=\"%5\">%6%7</text>")
                   .arg(left)
                   .arg(y)
                   .arg(kWidth - kRight)
                   .arg(left - 6)
                   .arg(y + 4)
                   .arg(num(top * step / 2).remove(QStringLiteral(".0")))
                   .arg(unit);
    }
    return svg;
}

QString bar(double x, double width, int baseline, double height, QString const& cls,
            QString const& tip) {
    return QStringLiteral("<rect class=\"%1\" x=\"%2\" y=\"%3\" width=\"%4\" "
                          "height=\"%5\"><title>%6</title></rect>")
        .arg(cls, num(x), num(baseline - height), num(width), num(height), esc(tip));
}

QString label(double x, int y, QString const& text, bool slanted) {
    if (slanted) {
        return QStringLiteral(
                   "<text class=\"slant\" transform=\"translate(%1 %2) rotate(-%3)\">%4</text>")
            .arg(num(x))
            .arg(y)
            .arg(kSlant)
            .arg(esc(text));
    }
    return QStringLiteral("<text class=\"label\" x=\"%1\" y=\"%2\">%3</text>")
        .arg(num(x))
        .arg(y)
        .arg(esc(text));
}

QString dayChart(std::vector<Period> const& periods) {
    int const height = 200;
    int const baseline = kTop + height;
    QString svg = frame(height, 100, QStringLiteral("%"));
    double const slot =
        static_cast<double>(kWidth - kLeft - kRight) / std::max<std::size_t>(periods.size(), 1);
    std::size_t const labelEvery = std::max<std::size_t>(1, periods.size() / 8);
    for (std::size_t i = 0; i < periods.size(); ++i) {
        Period const& period = periods[i];
        double const x = kLeft + slot * i;
        if (std::optional<double> const fraction = period.firstPass.fraction()) {
            svg += bar(x + slot * 0.1, std::max(slot * 0.8, 0.5), baseline, height * *fraction,
                       QStringLiteral("yield"),
                       QStringLiteral("%1: %2 of %3 boards passed first time")
                           .arg(period.label)
                           .arg(period.firstPass.passed)
                           .arg(period.firstPass.boards));
        }
        if (i % labelEvery == 0) {
            // Centred under its bar, but never past either end of the chart.
            double const half = labelWidth(period.label) / 2;
            double const centre =
                std::clamp(x + slot / 2, half + 2, static_cast<double>(kWidth) - half - 2);
            svg += label(centre, baseline + 16, period.label, false);
        }
    }
    return svg + QStringLiteral("</svg>\n");
}

QString paretoChart(std::vector<std::pair<QString, int>> const& tests) {
    int const height = 200;
    int const baseline = kTop + height;
    int top = 1;
    int total = 0;
    QStringList names;
    for (auto const& test : tests) {
        top = std::max(top, test.second);
        total += test.second;
        QString name = displayName(test.first);
        if (name.size() > kMostLabelChars) {
            name = name.left(kMostLabelChars - 1) + QChar(0x2026);
        }
        names.append(name);
    }
    // A slanted name reaches left of its bar by its width's cosine and
    // below the baseline by its sine: the plot moves right until the first
    // names fit, and the chart grows down to the longest.
    double const radians = kSlant * std::acos(-1.0) / 180;
    double const cosine = std::cos(radians);
    double const sine = std::sin(radians);
    std::size_t const count = std::max<std::size_t>(tests.size(), 1);
    int left = kLeft;
    for (int pass = 0; pass < 3; ++pass) {
        double const slot = static_cast<double>(kWidth - left - kRight) / count;
        double reach = kLeft;
        for (int i = 0; i < names.size(); ++i) {
            reach = std::max(reach, labelWidth(names[i]) * cosine + 4 - slot * (i + 0.5));
        }
        left = static_cast<int>(std::ceil(reach));
    }
    double longest = 0;
    for (QString const& name : names) {
        longest = std::max(longest, labelWidth(name));
    }
    QString svg = frame(height, top, QString(), left,
                        std::max(kBottom, static_cast<int>(std::ceil(14 + longest * sine + 14))));
    double const slot = static_cast<double>(kWidth - left - kRight) / count;
    QStringList points;
    int cumulative = 0;
    for (std::size_t i = 0; i < tests.size(); ++i) {
        auto const& [name, runs] = tests[i];
        double const x = left + slot * i;
        svg += bar(x + slot * 0.15, slot * 0.7, baseline, static_cast<double>(height) * runs / top,
                   QStringLiteral("fail"),
                   QStringLiteral("%1: failed in %2 runs").arg(displayName(name)).arg(runs));
        svg += label(x + slot * 0.5, baseline + 14, names[static_cast<int>(i)], true);
        cumulative += runs;
        points.append(QStringLiteral("%1,%2")
                          .arg(num(x + slot * 0.5))
                          .arg(num(baseline -
                                   static_cast<double>(height) * cumulative / std::max(total, 1))));
    }
    if (!points.isEmpty()) {
        svg += QStringLiteral("<polyline class=\"cumulative\" points=\"%1\"><title>cumulative "
                              "share of failures</title></polyline>")
                   .arg(points.join(QLatin1Char(' ')));
    }
    return svg + QStringLiteral("</svg>\n");
}

QString retestChart(std::map<int, int> const& retests) {
    int const height = 160;
    int const baseline = kTop + height;
    int top = 1;
    int most = 0;
    for (auto const& [count, boards] : retests) {
        top = std::max(top, boards);
        most = std::max(most, count);
    }
    QString svg = frame(height, top, QString());
    double const slot = static_cast<double>(kWidth - kLeft - kRight) / (most + 1);
    for (auto const& [count, boards] : retests) {
        double const x = kLeft + slot * count;
        svg += bar(x + slot * 0.15, slot * 0.7, baseline,
                   static_cast<double>(height) * boards / top, QStringLiteral("retest"),
                   QStringLiteral("%1 boards retested %2 times").arg(boards).arg(count));
        svg += label(x + slot * 0.5, baseline + 16, QString::number(count), false);
    }
    return svg + QStringLiteral("</svg>\n");
}

QString stationName(QString const& address, StationFigures const& station) {
    return station.uploader.isEmpty() ? address
                                      : QStringLiteral("%1 (%2)").arg(address, station.uploader);
}

QString stationChart(std::map<QString, StationFigures> const& stations) {
    int const row = 22;
    int const left = 300;
    int const height = std::max<int>(1, static_cast<int>(stations.size())) * row;
    QString svg =
        QStringLiteral("<svg width=\"%1\" height=\"%2\" viewBox=\"0 0 %1 %2\" role=\"img\">")
            .arg(kWidth)
            .arg(height + 2 * kTop);
    int y = kTop;
    double const span = kWidth - left - 80;
    for (auto const& [address, station] : stations) {
        svg += QStringLiteral("<text class=\"axis\" x=\"%1\" y=\"%2\">%3</text>")
                   .arg(left - 8)
                   .arg(y + 15)
                   .arg(esc(stationName(address, station)));
        if (std::optional<double> const fraction = station.firstPass.fraction()) {
            svg += QStringLiteral("<rect class=\"yield\" x=\"%1\" y=\"%2\" width=\"%3\" "
                                  "height=\"16\"><title>%4</title></rect>")
                       .arg(left)
                       .arg(y + 3)
                       .arg(num(span * *fraction))
                       .arg(esc(QStringLiteral("%1: %2 of %3 boards passed first time")
                                    .arg(address)
                                    .arg(station.firstPass.passed)
                                    .arg(station.firstPass.boards)));
        }
        svg += QStringLiteral("<text class=\"value\" x=\"%1\" y=\"%2\">%3</text>")
                   .arg(num(left + span + 6))
                   .arg(y + 15)
                   .arg(percent(station.firstPass));
        y += row;
    }
    return svg + QStringLiteral("</svg>\n");
}

QString row(QStringList const& cells) {
    return QStringLiteral("<tr><td>%1</td></tr>\n").arg(cells.join(QStringLiteral("</td><td>")));
}

QString table(QStringList const& headings, QString const& rows) {
    return QStringLiteral("<details><summary>Table</summary><table><tr><th>%1</th></tr>\n%2</"
                          "table></details>\n")
        .arg(headings.join(QStringLiteral("</th><th>")), rows);
}

char const kStyle[] =
    "body{font-family:sans-serif;margin:2em;color:#222}"
    "table{border-collapse:collapse;margin:.5em 0}td,th{border:1px solid #bbb;padding:2px "
    "8px;text-align:right}"
    "td:first-child,th:first-child{text-align:left}"
    "svg{display:block;margin:.5em 0}"
    ".grid{stroke:#ddd}.axis{font-size:11px;text-anchor:end}.label{font-size:10px;text-anchor:"
    "middle}"
    ".slant{font-size:10px;text-anchor:end}.value{font-size:11px}"
    ".yield{fill:#3a7d44}.fail{fill:#c0392b}.retest{fill:#2e6da4}"
    ".cumulative{fill:none;stroke:#222;stroke-width:1.5}";

} // namespace

QByteArray htmlReport(YieldFigures const& figures, Selection const& selection) {
    QString page =
        QStringLiteral(
            "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
            "<title>CV084 front panel test yield</title><style>%1</style></head><body>\n")
            .arg(QLatin1String(kStyle));
    page += QStringLiteral("<h1>CV084 front panel test: yield</h1>\n");
    QString const since = selection.since.isValid() ? selection.since.toString(Qt::ISODate)
                                                    : QStringLiteral("the first day");
    QString const until = selection.until.isValid()
                              ? selection.until.toString(Qt::ISODate)
                              : QStringLiteral("the latest day in the repository");
    page +=
        QStringLiteral("<p>Boards first tested from %1 to %2.</p>\n").arg(esc(since), esc(until));
    page += QStringLiteral("<table>\n");
    page += row({QStringLiteral("Runs"), QString::number(figures.runs)});
    page += row({QStringLiteral("Boards"), QString::number(figures.firstPass.boards)});
    page += row({QStringLiteral("Unassigned runs"), QString::number(figures.unassignedRuns)});
    page += row({QStringLiteral("Incomplete runs"), QString::number(figures.incompleteRuns)});
    page += row({QStringLiteral("First-pass yield"), esc(yieldText(figures.firstPass))});
    page += row({QStringLiteral("Final yield"), esc(yieldText(figures.final))});
    page += QStringLiteral("</table>\n");

    std::vector<Period> const byPeriod = periods(figures);
    page +=
        QStringLiteral("<h2>First-pass yield per %1</h2>\n")
            .arg(figures.days.size() > kMostDays ? QStringLiteral("month") : QStringLiteral("day"));
    page += dayChart(byPeriod);
    QString rows;
    for (Period const& period : byPeriod) {
        rows += row({period.label, QString::number(period.firstPass.boards),
                     QString::number(period.runs), percent(period.firstPass)});
    }
    page += table({QStringLiteral("Date"), QStringLiteral("Boards"), QStringLiteral("Runs"),
                   QStringLiteral("First-pass yield")},
                  rows);

    std::vector<std::pair<QString, int>> const failing = mostFailing(figures, kMostTests);
    page += QStringLiteral("<h2>Failing tests</h2>\n");
    page += paretoChart(failing);
    rows.clear();
    for (auto const& [name, runs] : failing) {
        auto const notRun = figures.notRun.find(name);
        rows += row({esc(displayName(name)), QString::number(runs),
                     QString::number(notRun == figures.notRun.end() ? 0 : notRun->second)});
    }
    std::size_t notRunOnly = 0;
    for (auto const& [name, runs] : figures.notRun) {
        if (figures.failures.count(name) == 0 && notRunOnly++ < kMostTests) {
            rows += row({esc(displayName(name)), QStringLiteral("0"), QString::number(runs)});
        }
    }
    if (notRunOnly > kMostTests) {
        rows += row({QStringLiteral("%1 more tests not run").arg(notRunOnly - kMostTests),
                     QString(), QString()});
    }
    if (figures.failures.size() > failing.size()) {
        rows += row({QStringLiteral("%1 more tests").arg(figures.failures.size() - failing.size()),
                     QString(), QString()});
    }
    page += table(
        {QStringLiteral("Test"), QStringLiteral("Runs failed"), QStringLiteral("Runs not run")},
        rows);

    page += QStringLiteral("<h2>Retests per board</h2>\n");
    page += retestChart(figures.retests);
    rows.clear();
    for (auto const& [count, boards] : figures.retests) {
        rows += row({QString::number(count), QString::number(boards)});
    }
    page += table({QStringLiteral("Retests"), QStringLiteral("Boards")}, rows);

    page += QStringLiteral("<h2>First-pass yield per station</h2>\n");
    page += stationChart(figures.stations);
    rows.clear();
    for (auto const& [address, station] : figures.stations) {
        rows += row({esc(address), esc(station.uploader), QString::number(station.firstPass.boards),
                     percent(station.firstPass), QString::number(station.runs)});
    }
    page += table({QStringLiteral("Station"), QStringLiteral("Uploader"), QStringLiteral("Boards"),
                   QStringLiteral("First-pass yield"), QStringLiteral("Runs")},
                  rows);

    if (!figures.unreadable.isEmpty()) {
        page +=
            QStringLiteral("<h2>Unreadable files (%1)</h2>\n<ul>\n").arg(figures.unreadable.size());
        for (int i = 0; i < figures.unreadable.size() && i < kMostUnreadable; ++i) {
            page += QStringLiteral("<li>%1</li>\n").arg(esc(figures.unreadable[i]));
        }
        if (figures.unreadable.size() > kMostUnreadable) {
            page += QStringLiteral("<li>and %1 more</li>\n")
                        .arg(figures.unreadable.size() - kMostUnreadable);
        }
        page += QStringLiteral("</ul>\n");
    }
    page += QStringLiteral("</body></html>\n");
    return page.toUtf8();
}

} // namespace yield
