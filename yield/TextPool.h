#pragma once

// One copy of each text that repeats across a year of results: a few dozen
// test names, uploaders and addresses, each named 100,000 times and more.
// Looked up by view (of the characters, or of their UTF-8 bytes), so a
// repeat costs no allocation.

#include <QHash>
#include <QString>
#include <QStringView>

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>

namespace yield {

class TextPool {
public:
    // The pool's copy of text, which shares its data.
    QString const& share(QStringView text) {
        auto const known = copies_.find(text);
        if (known != copies_.end()) {
            return *known->second;
        }
        // The deque never moves its strings, and a string's characters stay
        // where they are while it is not changed: the key may view them.
        QString const& copy = texts_.emplace_back(text.toString());
        copies_.emplace(QStringView(copy), &copy);
        return copy;
    }

    QString const& share(std::string_view utf8) {
        auto const known = byUtf8_.find(utf8);
        if (known != byUtf8_.end()) {
            return *known->second;
        }
        QString const& copy = share(QString::fromUtf8(utf8.data(), static_cast<int>(utf8.size())));
        byUtf8_.emplace(std::string_view(utf8Keys_.emplace_back(utf8)), &copy);
        return copy;
    }

private:
    struct Hash {
        std::size_t operator()(QStringView text) const { return qHash(text); }
    };
    std::deque<QString> texts_;
    std::unordered_map<QStringView, QString const*, Hash> copies_;
    std::deque<std::string> utf8Keys_;
    std::unordered_map<std::string_view, QString const*> byUtf8_;
};

} // namespace yield
