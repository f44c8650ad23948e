#include "yield/YieldOptions.h"

#include <QDir>

namespace yield {

char const kYieldUsage[] =
    "usage: front_panel_yield [--repository URL] [--user NAME] [--cacert FILE] [--cache DIR]\n"
    "                         [--since YYYY-MM-DD] [--until YYYY-MM-DD] [--json FILE|-] [--html "
    "FILE]\n"
    "                         [--offline]\n"
    "Reads the CV084 front panel test results from the artifact repository and reports\n"
    "first-pass and final yield, failing tests, retests, days and stations.\n"
    "  --repository URL  the repository's https:// address (default %1)\n"
    "  --user NAME       the read-only account; its password comes from ~/.netrc\n"
    "                    (machine HOST login NAME password PW) or FPT_YIELD_PASSWORD;\n"
    "                    without --user, the ~/.netrc entry's login for the host\n"
    "  --cacert FILE     also trust this CA (PEM) besides the system's\n"
    "  --cache DIR       where downloaded results are kept (default %2)\n"
    "  --since DATE, --until DATE\n"
    "                    only boards first tested on or after, on or before DATE\n"
    "  --json FILE       the figures as JSON (- for standard output)\n"
    "  --html FILE       one self-contained page with charts and tables\n"
    "  --offline         report from the cache as the last run left it, without\n"
    "                    contacting the repository (no account needed)\n"
    "  -h, --help        this text\n"
    "Exit status: 0 done, 1 the repository cannot be reached or refuses the account\n"
    "(the cache stays as it was) or, with --offline, there is no cache yet, 2 usage.\n";

namespace {

bool parseDate(QString const& text, QDate& date) {
    date = QDate::fromString(text, QStringLiteral("yyyy-MM-dd"));
    return date.isValid() && text.size() == 10;
}

} // namespace

QString defaultCacheDirectory(QString const& xdgCacheHome, QString const& home) {
    // The XDG base directory rules ignore a relative XDG_CACHE_HOME.
    QString const base = !xdgCacheHome.isEmpty() && QDir::isAbsolutePath(xdgCacheHome)
                             ? xdgCacheHome
                             : QDir(home).filePath(QStringLiteral(".cache"));
    return QDir(base).filePath(QStringLiteral("front_panel_yield"));
}

ParsedOptions parseYieldOptions(QStringList const& arguments, QString const& defaultRepository,
                                QString const& defaultCache) {
    YieldOptions options;
    QString repository = defaultRepository;
    options.cache = defaultCache;
    auto failed = [](QString const& error) { return ParsedOptions{std::nullopt, error}; };
    for (int i = 0; i < arguments.size(); ++i) {
        QString name = arguments[i];
        if (name == QLatin1String("-h") || name == QLatin1String("--help")) {
            options.help = true;
            continue;
        }
        if (name == QLatin1String("--offline")) {
            options.offline = true;
            continue;
        }
        std::optional<QString> value;
        int const equals = name.indexOf(QLatin1Char('='));
        if (name.startsWith(QLatin1String("--")) && equals > 0) {
            value = name.mid(equals + 1);
            name = name.left(equals);
        }
        QString* target = nullptr;
        if (name == QLatin1String("--repository")) {
            target = &repository;
        } else if (name == QLatin1String("--user")) {
            target = &options.user;
        } else if (name == QLatin1String("--cacert")) {
            target = &options.cacert;
        } else if (name == QLatin1String("--cache")) {
            target = &options.cache;
        } else if (name == QLatin1String("--json")) {
            target = &options.json;
        } else if (name == QLatin1String("--html")) {
            target = &options.html;
        }
        QString dateText;
        bool const isDate = name == QLatin1String("--since") || name == QLatin1String("--until");
        if (isDate) {
            target = &dateText;
        }
        if (target == nullptr) {
            return failed(QStringLiteral("unknown option %1").arg(arguments[i]));
        }
        if (!value) {
            if (i + 1 >= arguments.size()) {
                return failed(QStringLiteral("%1 needs a value").arg(name));
            }
            value = arguments[++i];
        }
        if (value->isEmpty()) {
            return failed(QStringLiteral("%1 needs a value").arg(name));
        }
        *target = *value;
        if (isDate) {
            QDate& date = name == QLatin1String("--since") ? options.selection.since
                                                           : options.selection.until;
            if (!parseDate(dateText, date)) {
                return failed(
                    QStringLiteral("%1 takes a date as YYYY-MM-DD, not %2").arg(name, dateText));
            }
        }
    }
    options.repository = QUrl(repository, QUrl::StrictMode);
    if (!options.repository.isValid() || options.repository.scheme() != QLatin1String("https") ||
        options.repository.host().isEmpty()) {
        return failed(
            QStringLiteral("--repository takes an https:// address, not %1").arg(repository));
    }
    if (options.selection.since.isValid() && options.selection.until.isValid() &&
        options.selection.since > options.selection.until) {
        return failed(QStringLiteral("--since %1 is after --until %2")
                          .arg(options.selection.since.toString(Qt::ISODate),
                               options.selection.until.toString(Qt::ISODate)));
    }
    return ParsedOptions{options, {}};
}

} // namespace yield
