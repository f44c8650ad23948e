#pragma once

// The program's command line.

#include "yield/YieldFigures.h"

#include <QString>
#include <QStringList>
#include <QUrl>

#include <optional>

namespace yield {

struct YieldOptions {
    QUrl repository;
    QString user;
    QString cacert;
    QString cache;
    Selection selection;
    // "-" for standard output; empty: none.
    QString json;
    QString html;
    // Report from the cache alone, without contacting the repository.
    bool offline = false;
    bool help = false;
};

struct ParsedOptions {
    std::optional<YieldOptions> options;
    // One line for the operator when there are no options.
    QString error;
};

// arguments without the program's name.
ParsedOptions parseYieldOptions(QStringList const& arguments, QString const& defaultRepository,
                                QString const& defaultCache);

// $XDG_CACHE_HOME/front_panel_yield, else ~/.cache/front_panel_yield.
QString defaultCacheDirectory(QString const& xdgCacheHome, QString const& home);

extern char const kYieldUsage[];

} // namespace yield
