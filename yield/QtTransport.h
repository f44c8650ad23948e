#pragma once

// HTTPS to the repository through Qt Network: TLS verified against the
// system's CA store plus an optional extra CA, Basic authentication sent
// only to the repository's own origin, several downloads in flight.

#include "yield/Transport.h"

#include <QList>
#include <QNetworkAccessManager>
#include <QSslCertificate>

class QNetworkReply;

namespace yield {

class QtTransport : public Transport {
public:
    QtTransport(QUrl const& repository, QString const& user, QString const& password,
                QList<QSslCertificate> const& extraCas);

    Response get(QUrl const& url) override;
    void getEach(std::vector<QUrl> const& urls,
                 std::function<bool(std::size_t, Response const&)> const& done) override;

private:
    QNetworkReply* start(QUrl const& url);
    static Response finish(QNetworkReply& reply);

    QNetworkAccessManager manager_;
    QUrl origin_;
    QByteArray authorization_;
    QList<QSslCertificate> extraCas_;
};

} // namespace yield
