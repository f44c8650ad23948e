#pragma once

// One copy of each text that repeats across a year of results: a few dozen
// test names, uploaders and addresses, each named 100,000 times and more.

#include <QSet>
#include <QString>

namespace yield {

class TextPool {
public:
    // The pool's copy of text, which shares its data.
    QString const& share(QString const& text) {
        auto known = copies_.constFind(text);
        if (known == copies_.constEnd()) {
            known = copies_.insert(text);
        }
        return *known;
    }

private:
    QSet<QString> copies_;
};

} // namespace yield
