#include "yield/HtmlReport.h"

#include <QRegularExpression>

#include <gtest/gtest.h>

#include <algorithm>

namespace yield {
namespace {

CachedRun run(QString path, QString serial, QString started, QString ip, Outcome outcome,
              QString test) {
    CachedRun run;
    run.path = std::move(path);
    run.uploader = QStringLiteral("station-") + ip;
    run.uploaderIp = std::move(ip);
    run.parsed.readable = true;
    run.parsed.serial = std::move(serial);
    run.parsed.started = std::move(started);
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
    std::vector<CachedRun> runs{
        run(QStringLiteral("CV084/7/front_panel_test/a.txt"), QStringLiteral("7"),
            QStringLiteral("2026-03-02 10:00"), QStringLiteral("10.0.0.1"), Outcome::Failed,
            QStringLiteral("<img src=x onerror=alert(1)>")),
        run(QStringLiteral("CV084/7/front_panel_test/b.txt"), QStringLiteral("7"),
            QStringLiteral("2026-03-02 10:00"), QStringLiteral("10.0.0.2"), Outcome::Passed,
            QStringLiteral("<img src=x onerror=alert(1)>")),
        run(QStringLiteral("CV084/8/front_panel_test/c.txt"), QStringLiteral("8"),
            QStringLiteral("2026-03-03 09:00"), QStringLiteral("10.0.0.2"), Outcome::Failed,
            QStringLiteral("Button \"F3\" & <script>")),
        run(QStringLiteral("CV084/U/front_panel_test/d.txt"), kUnassignedSerial,
            QStringLiteral("2026-03-03 09:00"), QStringLiteral("10.0.0.1"), Outcome::Failed,
            QStringLiteral("Button \"F3\" & <script>"))};
    QByteArray const page = htmlReport(computeFigures(runs, {}), {});
    std::reverse(runs.begin(), runs.end());
    EXPECT_EQ(htmlReport(computeFigures(runs, {}), {}), page);
    std::rotate(runs.begin(), runs.begin() + 1, runs.end());
    EXPECT_EQ(htmlReport(computeFigures(runs, {}), {}), page);
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
