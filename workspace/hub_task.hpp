// Runs one hub request at a time on a thread of its own, so the room set-up dialog never
// waits on the network; the answer comes back on the dialog's thread unless cancelled.
#pragma once

#include <QObject>
#include <QString>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>

class HubConnector;

class HubTask : public QObject {
    Q_OBJECT
public:
    // What a request hands back to run on this object's thread.
    using Done = std::function<void()>;
    // Runs on the task's thread with a connector of its own for the session.
    using Request = std::function<Done(HubConnector& hub)>;

    explicit HubTask(QObject* parent = nullptr);
    // Cancels a request under way and joins its thread.
    ~HubTask() override;

    bool busy() const { return busy_; }
    // Starts `request` unless one is under way; false when one is.
    bool start(const QString& address, const QString& token, Request request);
    // Gives up the request under way: its answer is dropped, its connection aborted soon.
    void cancel();

signals:
    void busyChanged(bool busy);

private:
    void finish(const std::shared_ptr<std::atomic<bool>>& cancelled, const Done& done);

    std::thread thread_;
    std::shared_ptr<std::atomic<bool>> cancelled_;
    bool busy_ = false;
};
