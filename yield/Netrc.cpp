#include "yield/Netrc.h"

#include <vector>

namespace yield {
namespace {

struct Machine {
    bool isDefault = false;
    QString host;
    NetrcEntry entry;
};

// Tokens are separated by blanks and newlines; a token may be quoted, and
// a backslash takes the next character as it is (a blank in a password).
std::vector<QString> tokens(QString const& text) {
    std::vector<QString> tokens;
    int i = 0;
    int const n = text.size();
    while (i < n) {
        if (text.at(i).isSpace()) {
            ++i;
            continue;
        }
        QString token;
        if (text.at(i) == QLatin1Char('"')) {
            for (++i; i < n && text.at(i) != QLatin1Char('"'); ++i) {
                if (text.at(i) == QLatin1Char('\\') && i + 1 < n) {
                    ++i;
                }
                token += text.at(i);
            }
            ++i;
        } else {
            for (; i < n && !text.at(i).isSpace(); ++i) {
                if (text.at(i) == QLatin1Char('\\') && i + 1 < n) {
                    ++i;
                }
                token += text.at(i);
            }
        }
        if (token == QLatin1String("macdef") &&
            (tokens.empty() || tokens.back() != QLatin1String("password"))) {
            // A macro definition: its name, then a body that runs to the
            // first empty line.
            while (i < n && text.at(i).isSpace() && text.at(i) != QLatin1Char('\n')) {
                ++i;
            }
            while (i < n && !text.at(i).isSpace()) {
                ++i;
            }
            int const end = text.indexOf(QLatin1String("\n\n"), i);
            i = end < 0 ? n : end + 2;
            continue;
        }
        tokens.push_back(token);
    }
    return tokens;
}

} // namespace

std::optional<NetrcEntry> findNetrcEntry(QByteArray const& netrc, QString const& host,
                                         QString const& user) {
    std::vector<QString> const words = tokens(QString::fromUtf8(netrc));
    std::vector<Machine> machines;
    for (std::size_t i = 0; i < words.size(); ++i) {
        QString const& word = words[i];
        bool const hasValue = i + 1 < words.size();
        if (word == QLatin1String("machine") && hasValue) {
            machines.push_back(Machine{false, words[++i], {}});
        } else if (word == QLatin1String("default")) {
            machines.push_back(Machine{true, {}, {}});
        } else if (machines.empty() || !hasValue) {
            continue;
        } else if (word == QLatin1String("login")) {
            machines.back().entry.login = words[++i];
        } else if (word == QLatin1String("password")) {
            machines.back().entry.password = words[++i];
        } else if (word == QLatin1String("account")) {
            ++i;
        }
    }
    for (bool const wantDefault : {false, true}) {
        for (Machine const& machine : machines) {
            bool const hostMatches =
                wantDefault
                    ? machine.isDefault
                    : !machine.isDefault && machine.host.compare(host, Qt::CaseInsensitive) == 0;
            if (hostMatches && (user.isEmpty() || machine.entry.login == user)) {
                return machine.entry;
            }
        }
    }
    return std::nullopt;
}

} // namespace yield
