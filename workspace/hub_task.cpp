// The hub request thread of the room set-up dialog. A connector lives and dies on the thread
// that uses it; the answer crosses back by a queued call that a cancel turns into nothing.
#include "workspace/hub_task.hpp"

#include "hub/hub_connector.hpp"

HubTask::HubTask(QObject* parent) : QObject(parent) {}

HubTask::~HubTask() {
    if (cancelled_) *cancelled_ = true;
    if (thread_.joinable()) thread_.join();
}

bool HubTask::start(const QString& address, const QString& token, Request request) {
    if (busy_) return false;
    // A cancelled request may still be winding down; it gives up within one poll.
    if (thread_.joinable()) thread_.join();
    auto cancelled = std::make_shared<std::atomic<bool>>(false);
    cancelled_ = cancelled;
    busy_ = true;
    emit busyChanged(true);
    thread_ = std::thread([this, address, token, request = std::move(request), cancelled] {
        Done done;
        {
            HubConnector hub(address, token);
            hub.setCancelFlag(cancelled.get());
            done = request(hub);
        }
        QMetaObject::invokeMethod(
            this, [this, cancelled, done] { finish(cancelled, done); }, Qt::QueuedConnection);
    });
    return true;
}

void HubTask::cancel() {
    if (!busy_) return;
    *cancelled_ = true;
    busy_ = false;
    emit busyChanged(false);
}

void HubTask::finish(const std::shared_ptr<std::atomic<bool>>& cancelled, const Done& done) {
    // The answer of a request given up, possibly after a newer one started.
    if (cancelled != cancelled_ || *cancelled) return;
    if (thread_.joinable()) thread_.join();
    busy_ = false;
    emit busyChanged(false);
    if (done) done();
}
