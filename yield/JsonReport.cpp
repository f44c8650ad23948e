#include "yield/JsonReport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace yield {
namespace {

QJsonValue fraction(Yield const& yield) {
    std::optional<double> const value = yield.fraction();
    return value ? QJsonValue(*value) : QJsonValue(QJsonValue::Null);
}

QJsonObject counts(std::map<QString, int> const& byName) {
    QJsonObject object;
    for (auto const& [name, count] : byName) {
        object.insert(name, count);
    }
    return object;
}

} // namespace

QByteArray jsonReport(YieldFigures const& figures) {
    QJsonObject root;
    root.insert(QStringLiteral("runs"), figures.runs);
    root.insert(QStringLiteral("boards"), figures.firstPass.boards);
    root.insert(QStringLiteral("unassigned_runs"), figures.unassignedRuns);
    root.insert(QStringLiteral("incomplete_runs"), figures.incompleteRuns);
    root.insert(QStringLiteral("first_pass_yield"), fraction(figures.firstPass));
    root.insert(QStringLiteral("final_yield"), fraction(figures.final));
    root.insert(QStringLiteral("failures"), counts(figures.failures));
    root.insert(QStringLiteral("not_run"), counts(figures.notRun));

    QJsonObject retests;
    for (auto const& [count, boards] : figures.retests) {
        retests.insert(QString::number(count), boards);
    }
    root.insert(QStringLiteral("retests"), retests);

    QJsonArray days;
    for (auto const& [date, day] : figures.days) {
        days.append(QJsonObject{{QStringLiteral("date"), date.toString(Qt::ISODate)},
                                {QStringLiteral("boards"), day.firstPass.boards},
                                {QStringLiteral("runs"), day.runs},
                                {QStringLiteral("first_pass_yield"), fraction(day.firstPass)}});
    }
    root.insert(QStringLiteral("days"), days);
    root.insert(QStringLiteral("unreadable"), QJsonArray::fromStringList(figures.unreadable));

    QJsonObject stations;
    for (auto const& [address, station] : figures.stations) {
        stations.insert(
            address, QJsonObject{{QStringLiteral("uploader"), station.uploader.isEmpty()
                                                                  ? QJsonValue(QJsonValue::Null)
                                                                  : QJsonValue(station.uploader)},
                                 {QStringLiteral("boards"), station.firstPass.boards},
                                 {QStringLiteral("first_pass_yield"), fraction(station.firstPass)},
                                 {QStringLiteral("runs"), station.runs}});
    }
    root.insert(QStringLiteral("stations"), stations);
    return QJsonDocument(root).toJson(QJsonDocument::Indented);
}

} // namespace yield
