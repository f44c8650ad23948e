#pragma once

// How the program talks to the repository: one GET at a time for the
// listing, many at once for the downloads. QtTransport does it over HTTPS;
// the tests give a scripted one.

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <cstddef>
#include <functional>
#include <vector>

namespace yield {

struct Response {
    enum class Kind {
        Ok,          // 2xx, body holds the content
        Unreachable, // no answer: name lookup, connection, TLS, time-out
        Refused,     // 401 or 403: the account is not let in
        Failed,      // any other HTTP status
    };
    Kind kind = Kind::Unreachable;
    int status = 0;
    QByteArray body;
    // For the operator: the network layer's reason, or the HTTP status text.
    QString error;
};

class Transport {
public:
    virtual ~Transport() = default;
    virtual Response get(QUrl const& url) = 0;
    // Fetches every URL and calls done(index, response) for each, in the
    // order they complete; done returning false stops the rest.
    virtual void getEach(std::vector<QUrl> const& urls,
                         std::function<bool(std::size_t, Response const&)> const& done) {
        for (std::size_t i = 0; i < urls.size(); ++i) {
            if (!done(i, get(urls[i]))) {
                return;
            }
        }
    }
};

} // namespace yield
