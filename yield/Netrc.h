#pragma once

// The login and password of a host in a netrc file, the convention curl,
// git and ftp share: "machine HOST login NAME password PW" in any layout of
// blanks and newlines, "default" for any other host, "macdef" bodies
// skipped.

#include <QByteArray>
#include <QString>

#include <optional>

namespace yield {

struct NetrcEntry {
    QString login;
    QString password;
};

// The first entry for host whose login is user (any login when user is
// empty), else the default entry under the same condition.
std::optional<NetrcEntry> findNetrcEntry(QByteArray const& netrc, QString const& host,
                                         QString const& user);

} // namespace yield
