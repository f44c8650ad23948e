// front_panel_yield: first-pass yield, failing tests and trends of the CV084
// front panel test, from the results files the stations uploaded.

#include "yield/HtmlReport.h"
#include "yield/JsonReport.h"
#include "yield/Netrc.h"
#include "yield/QtTransport.h"
#include "yield/RepositorySync.h"
#include "yield/ResultsCache.h"
#include "yield/SummaryText.h"
#include "yield/YieldFigures.h"
#include "yield/YieldOptions.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcessEnvironment>
#include <QSaveFile>
#include <QSslCertificate>

#include <cstdio>

namespace {

constexpr int kFailed = 1;
constexpr int kUsage = 2;

int complain(int status, QString const& line) {
    std::fprintf(stderr, "front_panel_yield: %s\n", line.toLocal8Bit().constData());
    return status;
}

void print(QByteArray const& bytes) {
    std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), stdout);
    std::fflush(stdout);
}

// A report is replaced whole or not at all.
bool writeFile(QString const& path, QByteArray const& bytes, QString& error) {
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
        error = QStringLiteral("cannot write %1: %2").arg(path, file.errorString());
        return false;
    }
    return true;
}

// The network layer's own warnings would add lines to the one the operator
// is given on failure.
void quietQtMessages(QtMsgType type, QMessageLogContext const&, QString const& message) {
    if (type == QtFatalMsg) {
        std::fprintf(stderr, "front_panel_yield: %s\n", message.toLocal8Bit().constData());
    }
}

// Brings the cache up to the repository; 0, or the exit status after the
// operator's line.
int syncFromRepository(yield::YieldOptions const& options, QProcessEnvironment const& environment,
                       yield::ResultsCache& cache) {
    // The read-only account: never the password on the command line, where
    // every user of the machine can read it.
    QString const host = options.repository.host();
    QFile netrcFile(QDir::home().filePath(QStringLiteral(".netrc")));
    QByteArray const netrc =
        netrcFile.open(QIODevice::ReadOnly) ? netrcFile.readAll() : QByteArray();
    std::optional<yield::NetrcEntry> const entry = yield::findNetrcEntry(netrc, host, options.user);
    QString const user = !options.user.isEmpty() ? options.user : entry ? entry->login : QString();
    if (user.isEmpty()) {
        return complain(kUsage,
                        QStringLiteral("no account for %1: give --user NAME, or put \"machine %1 "
                                       "login NAME password PW\" in ~/.netrc")
                            .arg(host));
    }
    QString password;
    if (environment.contains(QStringLiteral("FPT_YIELD_PASSWORD"))) {
        password = environment.value(QStringLiteral("FPT_YIELD_PASSWORD"));
    } else if (entry) {
        password = entry->password;
    } else {
        return complain(kUsage,
                        QStringLiteral("no password for %1 at %2: put \"machine %2 login %1 "
                                       "password PW\" in ~/.netrc or set FPT_YIELD_PASSWORD")
                            .arg(user, host));
    }
    QList<QSslCertificate> extraCas;
    if (!options.cacert.isEmpty()) {
        extraCas = QSslCertificate::fromPath(options.cacert, QSsl::Pem,
                                             QSslCertificate::PatternSyntax::FixedString);
        if (extraCas.isEmpty()) {
            return complain(
                kUsage, QStringLiteral("--cacert %1 holds no PEM certificate").arg(options.cacert));
        }
    }

    if (!cache.open()) {
        return complain(kFailed, QStringLiteral("cannot open the cache: %1").arg(cache.error()));
    }
    yield::QtTransport transport(options.repository, user, password, extraCas);
    yield::SyncOutcome const sync =
        yield::RepositorySync(transport, cache, options.repository, user).run();
    return sync.ok ? 0 : complain(kFailed, sync.error);
}

} // namespace

int main(int argc, char* argv[]) {
    qInstallMessageHandler(quietQtMessages);
    QCoreApplication application(argc, argv);
    QProcessEnvironment const environment = QProcessEnvironment::systemEnvironment();
    QString const defaultRepository = QStringLiteral(FPT_YIELD_DEFAULT_REPOSITORY);
    QString const defaultCache = yield::defaultCacheDirectory(
        environment.value(QStringLiteral("XDG_CACHE_HOME")), QDir::homePath());
    yield::ParsedOptions const parsed =
        yield::parseYieldOptions(application.arguments().mid(1), defaultRepository, defaultCache);
    if (!parsed.options) {
        complain(kUsage, parsed.error);
        std::fprintf(stderr, "Try 'front_panel_yield --help'.\n");
        return kUsage;
    }
    yield::YieldOptions const& options = *parsed.options;
    if (options.help) {
        print(
            QString::fromLatin1(yield::kYieldUsage).arg(defaultRepository, defaultCache).toUtf8());
        return 0;
    }

    yield::ResultsCache cache(options.cache);
    if (options.offline) {
        // Made by open() when missing: an empty cache would report a line
        // that never tested a board.
        if (!QFileInfo::exists(cache.filePath())) {
            return complain(kFailed,
                            QStringLiteral("no cache in %1 yet: run once without --offline")
                                .arg(options.cache));
        }
        // Left as it is, for the version that made it: starting it again
        // here would leave nothing to report.
        if (!cache.open(yield::ResultsCache::OtherVersion::Refuse)) {
            return complain(kFailed,
                            QStringLiteral("cannot open the cache: %1").arg(cache.error()));
        }
    } else if (int const status = syncFromRepository(options, environment, cache); status != 0) {
        return status;
    }

    std::vector<yield::CachedRun> const runs = cache.runs();
    if (!cache.error().isEmpty()) {
        return complain(kFailed, QStringLiteral("cannot read the cache: %1").arg(cache.error()));
    }
    yield::YieldFigures const figures = yield::computeFigures(runs, options.selection);
    QString error;
    if (options.json == QLatin1String("-")) {
        print(yield::jsonReport(figures));
    } else if (!options.json.isEmpty() &&
               !writeFile(options.json, yield::jsonReport(figures), error)) {
        return complain(kFailed, error);
    }
    if (!options.html.isEmpty() &&
        !writeFile(options.html, yield::htmlReport(figures, options.selection), error)) {
        return complain(kFailed, error);
    }
    if (options.json != QLatin1String("-")) {
        print(yield::summaryText(figures).toUtf8());
    }
    return 0;
}
