// A thin synchronous HTTP request helper: sends one request and waits for its reply in a
// local event loop of the calling thread; the room set-up dialog calls it off the GUI thread.
#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>

#include <atomic>

class QNetworkAccessManager;
class QNetworkReply;

enum REST_VERB { GET = 0, POST = 1, PUT = 2 };

// Each entry is (name, value); entries of any other length are skipped.
using RestHeaderList = QList<QList<QByteArray>>;

class QtRestRequester : public QObject {
    Q_OBJECT

public:
    explicit QtRestRequester(QObject* parent = nullptr);
    ~QtRestRequester() override;

    // Returns nullptr for an unknown verb. The caller owns the reply (deleteLater) and must
    // expect it unfinished when the wait ran out.
    QNetworkReply* performRequest(REST_VERB verb, const QString& url, const RestHeaderList& headers,
                                  const QByteArray& body);

    // The wait is kWaitRounds rounds of kWaitRoundMs; tests shorten it here. A value <= 0
    // restores the normal wait.
    static constexpr int kWaitRounds = 10000;
    static constexpr int kWaitRoundMs = 5;
    static void setWaitRoundsForTesting(int rounds);

    // A request under way gives up (its reply aborted) soon after `*cancel` turns true. The
    // flag must outlive the requester; nullptr (the default) never cancels.
    void setCancelFlag(const std::atomic<bool>* cancel) { cancel_ = cancel; }

private:
    QNetworkAccessManager* manager_;
    const std::atomic<bool>* cancel_ = nullptr;
};
