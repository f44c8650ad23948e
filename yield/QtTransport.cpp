#include "yield/QtTransport.h"

#include <QEventLoop>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSslConfiguration>

#include <functional>
#include <map>
#include <memory>

namespace yield {
namespace {

// A repository that stops answering mid-transfer is given up on after this.
constexpr int kTransferTimeoutMs = 30000;
// Qt opens at most six connections per host; more in flight only queue.
constexpr std::size_t kDownloadsInFlight = 6;

bool sameOrigin(QUrl const& a, QUrl const& b) {
    return a.scheme() == b.scheme() && a.host().compare(b.host(), Qt::CaseInsensitive) == 0 &&
           a.port(443) == b.port(443);
}

struct ReplyDeleter {
    void operator()(QNetworkReply* reply) const {
        // Its finished signal must not reach a loop that has moved on.
        QObject::disconnect(reply, nullptr, nullptr, nullptr);
        reply->abort();
        reply->deleteLater();
    }
};

} // namespace

QtTransport::QtTransport(QUrl const& repository, QString const& user, QString const& password,
                         QList<QSslCertificate> const& extraCas)
    : origin_(repository),
      authorization_("Basic " + (user + QLatin1Char(':') + password).toUtf8().toBase64()),
      extraCas_(extraCas) {}

QNetworkReply* QtTransport::start(QUrl const& url) {
    QNetworkRequest request(url);
    QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
    if (!extraCas_.isEmpty()) {
        tls.setCaCertificates(tls.caCertificates() + extraCas_);
    }
    tls.setPeerVerifyMode(QSslSocket::VerifyPeer);
    request.setSslConfiguration(tls);
    request.setTransferTimeout(kTransferTimeoutMs);
    // The account's password goes to the repository only, never to a
    // download address elsewhere that a listing might name.
    if (sameOrigin(url, origin_)) {
        request.setRawHeader("Authorization", authorization_);
    }
    return manager_.get(request);
}

Response QtTransport::finish(QNetworkReply& reply) {
    Response response;
    QVariant const status = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute);
    response.status = status.isValid() ? status.toInt() : 0;
    if (response.status == 401 || response.status == 403) {
        response.kind = Response::Kind::Refused;
    } else if (response.status >= 200 && response.status < 300 &&
               reply.error() == QNetworkReply::NoError) {
        response.kind = Response::Kind::Ok;
        response.body = reply.readAll();
        return response;
    } else if (response.status != 0) {
        response.kind = Response::Kind::Failed;
    } else {
        response.kind = Response::Kind::Unreachable;
    }
    response.error = reply.errorString();
    return response;
}

Response QtTransport::get(QUrl const& url) {
    Response response;
    getEach({url}, [&](std::size_t, Response const& r) {
        response = r;
        return true;
    });
    return response;
}

void QtTransport::getEach(std::vector<QUrl> const& urls,
                          std::function<bool(std::size_t, Response const&)> const& done) {
    std::map<QNetworkReply*, std::pair<std::size_t, std::unique_ptr<QNetworkReply, ReplyDeleter>>>
        inFlight;
    std::size_t next = 0;
    bool stopped = false;
    QEventLoop loop;
    std::function<void()> fill;
    fill = [&] {
        while (!stopped && next < urls.size() && inFlight.size() < kDownloadsInFlight) {
            QNetworkReply* reply = start(urls[next]);
            inFlight.emplace(
                reply, std::make_pair(next, std::unique_ptr<QNetworkReply, ReplyDeleter>(reply)));
            QObject::connect(reply, &QNetworkReply::finished, &loop, [&, reply] {
                auto const found = inFlight.find(reply);
                if (found == inFlight.end()) {
                    return;
                }
                std::size_t const index = found->second.first;
                Response const response = finish(*reply);
                inFlight.erase(found);
                if (!done(index, response)) {
                    stopped = true;
                    inFlight.clear();
                    loop.quit();
                    return;
                }
                fill();
                if (inFlight.empty()) {
                    loop.quit();
                }
            });
            ++next;
        }
    };
    fill();
    if (!inFlight.empty()) {
        loop.exec();
    }
}

} // namespace yield
