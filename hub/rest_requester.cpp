// Sends one HTTP request through Qt and waits for its reply in a local event loop of the
// calling thread, giving up when the wait runs out or the caller cancels.
#include "hub/rest_requester.hpp"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>
#include <QUrl>

#include <atomic>

namespace {

std::atomic<int> waitRoundsOverride{0};

}  // namespace

QtRestRequester::QtRestRequester(QObject* parent)
    : QObject(parent), manager_(new QNetworkAccessManager(this)) {}

QtRestRequester::~QtRestRequester() = default;

void QtRestRequester::setWaitRoundsForTesting(int rounds) { waitRoundsOverride = rounds; }

QNetworkReply* QtRestRequester::performRequest(REST_VERB verb, const QString& url,
                                               const RestHeaderList& headers, const QByteArray& body) {
    QNetworkRequest request{QUrl(url)};
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    // Raw headers go last so that a caller's own Content-Type replaces the JSON one.
    for (const QList<QByteArray>& entry : headers) {
        if (entry.size() == 2) request.setRawHeader(entry[0], entry[1]);
    }

    QNetworkReply* reply = nullptr;
    switch (verb) {
    case GET: reply = manager_->get(request); break;
    case POST: reply = manager_->post(request, body); break;
    case PUT: reply = manager_->put(request, body); break;
    default: return nullptr;
    }

    const int override = waitRoundsOverride;
    const qint64 limitMs = qint64(override > 0 ? override : kWaitRounds) * kWaitRoundMs;
    if (!reply->isFinished()) {
        QEventLoop loop;
        QElapsedTimer waited;
        waited.start();
        QTimer poll;
        poll.setInterval(kWaitRoundMs);
        connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
        connect(&poll, &QTimer::timeout, &loop, [&] {
            if (waited.elapsed() >= limitMs || (cancel_ && *cancel_)) loop.quit();
        });
        poll.start();
        loop.exec();
    }
    // A cancelled request must not land later on a connection nobody reads any more.
    if (!reply->isFinished() && cancel_ && *cancel_) reply->abort();
    return reply;
}
