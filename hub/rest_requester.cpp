// Sends one HTTP request through Qt and waits for it by pumping the event loop, so callers on
// the GUI thread get a synchronous answer without freezing the window.
#include "hub/rest_requester.hpp"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QThread>
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
    const int rounds = override > 0 ? override : kWaitRounds;
    for (int round = 0; round < rounds && !reply->isFinished(); ++round) {
        QThread::msleep(kWaitRoundMs);
        QCoreApplication::processEvents();
    }
    return reply;
}
