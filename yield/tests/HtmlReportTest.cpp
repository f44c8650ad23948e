#include "yield/HtmlReport.h"

#include <QRegularExpression>

#include <gtest/gtest.h>

#include <algorithm>

namespace yield {
namespace {

CachedRun run(int board, int retest, QString const& serial, Outcome outcome, QString test) {
    CachedRun run;
    run.path = QStringLiteral("CV084/%1/front_panel_test/%2.txt").arg(serial).arg(retest);
    // Each run uploaded by its own account: a station is named by its latest.
    run.uploader = QStringLiteral("account-%1-%2").arg(board).arg(retest);
    run.uploaderIp = QStringLiteral("10.0.0.%1").arg(board % 2);
    run.parsed.readable = true;
    run.parsed.serial = serial;
    run.parsed.started =
        QStringLiteral("2026-03-%1 10:00").arg(2 + board + retest, 2, 10, QLatin1Char('0'));
    run.parsed.results.push_back(ResultLine{outcome, std::move(test)});
    return run;
}

// Every tag of the page, and what in one could fetch or run something.
void expectSelfContained(QByteArray const& page) {
    QRegularExpression const tag(QStringLiteral("<[A-Za-z!/][^>]*>"));
    QRegularExpression const reference(
        QStringLiteral("<script|<link|<img|<iframe|<object|<embed|\\s(src|href|xlink:href|on[a-z]+)"
                       "\\s*=|url\\(|@import"),
        QRegularExpression::CaseInsensitiveOption);
    auto tags = tag.globalMatch(QString::fromUtf8(page));
    int count = 0;
    while (tags.hasNext()) {
        QString const text = tags.next().captured();
        EXPECT_FALSE(reference.match(text).hasMatch()) << text.toStdString();
        ++count;
    }
    EXPECT_GT(count, 100);
}

TEST(HtmlReport, SameFiguresSameBytesWhateverTheCacheOrderAndNothingFetched) {
    std::vector<CachedRun> runs;
    for (int board = 0; board < 8; ++board) {
        for (int retest = 0; retest < 2; ++retest) {
            QString const serial = board == 7 ? kUnassignedSerial : QString::number(board);
            runs.push_back(run(board, retest, serial,
                               retest == 0 ? Outcome::Failed : Outcome::Passed,
                               board % 2 ? QStringLiteral("<img src=x onerror=alert(1)>")
                                         : QStringLiteral("Button \"F3\" & <script>")));
        }
    }
    // The cache gives its rows in any order, and every process hashes
    // differently.
    qSetGlobalQHashSeed(0);
    QByteArray const page = htmlReport(computeFigures(runs, {}), {});
    std::reverse(runs.begin(), runs.end());
    qSetGlobalQHashSeed(1);
    EXPECT_EQ(htmlReport(computeFigures(runs, {}), {}), page);
    std::rotate(runs.begin(), runs.begin() + 5, runs.end());
    qSetGlobalQHashSeed(2);
    EXPECT_EQ(htmlReport(computeFigures(runs, {}), {}), page);
    qSetGlobalQHashSeed(-1);
    expectSelfContained(page);
}

TEST(HtmlReport, AYearOfABusyLineFitsInOneMegabyte) {
    YieldFigures figures;
    QDate const first(2025, 1, 1);
    for (int day = 0; day < 365; ++day) {
        figures.days[first.addDays(day)] = DayFigures{Yield{270, 250}, 274};
    }
    for (int station = 0; station < 30; ++station) {
        figures.stations[QStringLiteral("10.20.30.%1").arg(station)] = StationFigures{
            QStringLiteral("station-upload-account-%1").arg(station), Yield{3300, 3000}, 3333};
    }
    // Damaged files can carry any names: thousands of them.
    for (int test = 0; test < 5000; ++test) {
        figures.failures[QStringLiteral("A test with a long name of the panel's plan, number %1")
                             .arg(test)] = test;
        figures.notRun[QStringLiteral("Another test with a long name, never run, number %1")
                           .arg(test)] = test;
        figures.unreadable.append(
            QStringLiteral("CV084/%1/front_panel_test/front_panel_test_%1-1.bin").arg(test));
    }
    for (int retests = 0; retests < 60; ++retests) {
        figures.retests[retests] = 1000 - retests;
    }
    QByteArray const page = htmlReport(figures, {});
    EXPECT_LE(page.size(), 1000 * 1000);
    expectSelfContained(page);
}

} // namespace
} // namespace yield
