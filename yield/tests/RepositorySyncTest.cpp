#include "yield/RepositorySync.h"
#include "yield/JsonReport.h"
#include "yield/YieldFigures.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <map>

namespace yield {
namespace {

QString const kBase = QStringLiteral("https://nexus.test");
QString const kFirstPage =
    QStringLiteral("https://nexus.test/service/rest/v1/assets?repository=vy_production_artifacts");

// The repository as the listing and downloads show it, scripted per URL.
class ScriptedRepository : public Transport {
public:
    Response get(QUrl const& url) override {
        requested.push_back(url.toString(QUrl::FullyEncoded));
        if (url.path().contains(QLatin1String("/repository/")) && downloadsLeft-- == 0) {
            return Response{
                Response::Kind::Unreachable, 0, {}, QStringLiteral("Connection refused")};
        }
        auto const found = answers.find(requested.back());
        return found != answers.end() ? found->second
                                      : Response{Response::Kind::Failed, 404, {}, {}};
    }

    std::map<QString, Response> answers;
    std::vector<QString> requested;
    int downloadsLeft = -1;
};

QJsonObject item(QString const& path, QString const& sha1) {
    return QJsonObject{{QStringLiteral("path"), path},
                       {QStringLiteral("downloadUrl"),
                        kBase + QStringLiteral("/repository/vy_production_artifacts/") +
                            (path.startsWith(QLatin1Char('/')) ? path.mid(1) : path)},
                       {QStringLiteral("checksum"), QJsonObject{{QStringLiteral("sha1"), sha1}}},
                       {QStringLiteral("uploader"), QStringLiteral("fpt-upload")},
                       {QStringLiteral("uploaderIp"), QStringLiteral("10.0.0.7")}};
}

QString download(QString const& path) {
    return kBase + QStringLiteral("/repository/vy_production_artifacts/") + path;
}

Response ok(QByteArray body) {
    return Response{Response::Kind::Ok, 200, std::move(body), {}};
}

void listPage(ScriptedRepository& repository, QString const& url, QJsonArray const& items,
              QJsonValue token) {
    repository.answers[url] =
        ok(QJsonDocument(QJsonObject{{QStringLiteral("items"), items},
                                     {QStringLiteral("continuationToken"), token}})
               .toJson());
}

QByteArray resultsFile(char const* serial, char const* outcome) {
    return QByteArray("Tests Started: 10:00 02/03/2026\nSerial No: ") + serial + "\n" + outcome +
           " - LEDs\n";
}

std::vector<QString> cachedPaths(ResultsCache& cache) {
    std::vector<QString> paths;
    for (CachedRun const& run : cache.runs()) {
        paths.push_back(run.path + QLatin1Char(' ') +
                        QLatin1Char(outcomeLetter(run.parsed.results.at(0).outcome)));
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

class RepositorySyncTest : public ::testing::Test {
protected:
    SyncOutcome sync() {
        return RepositorySync(repository, cache, QUrl(kBase), QStringLiteral("reader")).run();
    }

    QTemporaryDir folder;
    ResultsCache cache{folder.path()};
    ScriptedRepository repository;
};

TEST_F(RepositorySyncTest, ReadsEveryPageAndDownloadsOnlyWhatIsNewOrChanged) {
    ASSERT_TRUE(cache.open());
    listPage(repository, kFirstPage,
             {item(QStringLiteral("CV084/1/front_panel_test/a.txt"), QStringLiteral("a1")),
              item(QStringLiteral("CV084/1/other_program/x.txt"), QStringLiteral("x1")),
              item(QStringLiteral("CV085/1/front_panel_test/y.txt"), QStringLiteral("y1")),
              item(QStringLiteral("CV084/2/front_panel_test/b.txt"), QStringLiteral("b1"))},
             QStringLiteral("p+2/="));
    QString const second = kFirstPage + QStringLiteral("&continuationToken=p%2B2%2F%3D");
    listPage(repository, second,
             {item(QStringLiteral("/CV084/3/front_panel_test/c.txt"), QStringLiteral("c1"))},
             QJsonValue::Null);
    repository.answers[download(QStringLiteral("CV084/1/front_panel_test/a.txt"))] =
        ok(resultsFile("1", "PASSED "));
    repository.answers[download(QStringLiteral("CV084/2/front_panel_test/b.txt"))] =
        ok(resultsFile("2", "FAIL!! "));
    repository.answers[download(QStringLiteral("CV084/3/front_panel_test/c.txt"))] =
        ok(resultsFile("3", "PASSED "));
    SyncOutcome outcome = sync();
    ASSERT_TRUE(outcome.ok) << outcome.error.toStdString();
    EXPECT_EQ(repository.requested,
              (std::vector<QString>{kFirstPage, second,
                                    download(QStringLiteral("CV084/1/front_panel_test/a.txt")),
                                    download(QStringLiteral("CV084/2/front_panel_test/b.txt")),
                                    download(QStringLiteral("CV084/3/front_panel_test/c.txt"))}));

    // b changed, d is new, c is gone, a is as it was.
    repository.requested.clear();
    listPage(repository, kFirstPage,
             {item(QStringLiteral("CV084/1/front_panel_test/a.txt"), QStringLiteral("a1")),
              item(QStringLiteral("CV084/2/front_panel_test/b.txt"), QStringLiteral("b2")),
              item(QStringLiteral("CV084/4/front_panel_test/d.txt"), QStringLiteral("d1"))},
             QJsonValue::Null);
    repository.answers[download(QStringLiteral("CV084/2/front_panel_test/b.txt"))] =
        ok(resultsFile("2", "PASSED "));
    repository.answers[download(QStringLiteral("CV084/4/front_panel_test/d.txt"))] =
        ok(resultsFile("4", "Not Run"));
    outcome = sync();
    ASSERT_TRUE(outcome.ok) << outcome.error.toStdString();
    EXPECT_EQ(repository.requested,
              (std::vector<QString>{kFirstPage,
                                    download(QStringLiteral("CV084/2/front_panel_test/b.txt")),
                                    download(QStringLiteral("CV084/4/front_panel_test/d.txt"))}));
    EXPECT_EQ(cachedPaths(cache),
              (std::vector<QString>{QStringLiteral("CV084/1/front_panel_test/a.txt P"),
                                    QStringLiteral("CV084/2/front_panel_test/b.txt P"),
                                    QStringLiteral("CV084/4/front_panel_test/d.txt N")}));
}

TEST_F(RepositorySyncTest, ARunCutOffMidDownloadsIsContinuedToTheSameFigures) {
    QJsonArray items;
    for (char const* serial : {"1", "2", "3", "4", "5"}) {
        QString const path =
            QStringLiteral("CV084/%1/front_panel_test/r.txt").arg(QLatin1String(serial));
        items.append(item(path, QStringLiteral("sha-%1").arg(QLatin1String(serial))));
        repository.answers[download(path)] =
            ok(resultsFile(serial, serial[0] % 2 ? "PASSED " : "FAIL!! "));
    }
    listPage(repository, kFirstPage, items, QJsonValue::Null);
    QByteArray clean;
    {
        QTemporaryDir elsewhere;
        ResultsCache reference(elsewhere.path());
        ASSERT_TRUE(reference.open());
        ASSERT_TRUE(
            RepositorySync(repository, reference, QUrl(kBase), QStringLiteral("reader")).run().ok);
        clean = jsonReport(computeFigures(reference.runs(), {}));
    }

    // The network goes after two downloads, asked for two at a time. What
    // was stored is committed for the next run.
    ASSERT_TRUE(cache.open());
    repository.downloadsLeft = 2;
    SyncOutcome outcome =
        RepositorySync(repository, cache, QUrl(kBase), QStringLiteral("reader"), 2).run();
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.error, QStringLiteral("cannot reach https://nexus.test: Connection refused"));
    {
        ResultsCache nextRun(folder.path());
        ASSERT_TRUE(nextRun.open());
        EXPECT_EQ(nextRun.runs().size(), 2u);
    }

    // Killed while storing the third: its transaction never committed.
    {
        QSqlDatabase killed =
            QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("killed"));
        killed.setDatabaseName(cache.filePath());
        ASSERT_TRUE(killed.open());
        ASSERT_TRUE(killed.transaction());
        QSqlQuery(killed).exec(QStringLiteral(
            "INSERT INTO asset VALUES ('CV084/3/front_panel_test/r.txt', 'sha-3', '', '', 1, '3', "
            "'2026-03-02 10:00', 'Pwrong\n')"));
        killed.close();
    }
    QSqlDatabase::removeDatabase(QStringLiteral("killed"));

    repository.requested.clear();
    repository.downloadsLeft = -1;
    outcome = RepositorySync(repository, cache, QUrl(kBase), QStringLiteral("reader"), 2).run();
    ASSERT_TRUE(outcome.ok) << outcome.error.toStdString();
    EXPECT_EQ(repository.requested,
              (std::vector<QString>{kFirstPage,
                                    download(QStringLiteral("CV084/3/front_panel_test/r.txt")),
                                    download(QStringLiteral("CV084/4/front_panel_test/r.txt")),
                                    download(QStringLiteral("CV084/5/front_panel_test/r.txt"))}));
    EXPECT_EQ(jsonReport(computeFigures(cache.runs(), {})), clean);
}

TEST_F(RepositorySyncTest, AListingCutShortForgetsNothingAndNamesTheRefusedAccount) {
    ASSERT_TRUE(cache.open());
    listPage(repository, kFirstPage,
             {item(QStringLiteral("CV084/1/front_panel_test/a.txt"), QStringLiteral("a1")),
              item(QStringLiteral("CV084/2/front_panel_test/b.txt"), QStringLiteral("b1"))},
             QJsonValue::Null);
    repository.answers[download(QStringLiteral("CV084/1/front_panel_test/a.txt"))] =
        ok(resultsFile("1", "PASSED "));
    repository.answers[download(QStringLiteral("CV084/2/front_panel_test/b.txt"))] =
        ok(resultsFile("2", "PASSED "));
    ASSERT_TRUE(sync().ok);

    // The first page no longer shows b, and the second is refused.
    listPage(repository, kFirstPage,
             {item(QStringLiteral("CV084/1/front_panel_test/a.txt"), QStringLiteral("a1"))},
             QStringLiteral("next"));
    repository.answers[kFirstPage + QStringLiteral("&continuationToken=next")] =
        Response{Response::Kind::Refused, 401, {}, QStringLiteral("Host requires authentication")};
    repository.requested.clear();
    SyncOutcome const outcome = sync();
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.error,
              QStringLiteral(
                  "the repository https://nexus.test refused the account \"reader\" (HTTP 401)"));
    EXPECT_EQ(repository.requested.size(), 2u);
    EXPECT_EQ(cache.runs().size(), 2u);
}

} // namespace
} // namespace yield
