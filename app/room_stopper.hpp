// Stops the fusion worker's room off the GUI thread: joining the worker, closing the
// senders and waiting for a running solve or AI-model optimisation can take seconds.
#pragma once

#include <QObject>

#include <functional>
#include <thread>

class FusionWorker;

class RoomStopper : public QObject {
    Q_OBJECT
public:
    explicit RoomStopper(FusionWorker& worker, QObject* parent = nullptr);
    ~RoomStopper() override;

    // Stops the room unless a stop is already under way, then runs `next` on this
    // object's thread. A later call's `next` replaces one that has not run yet, so only
    // the room the user asked for last starts; a call without one replaces nothing.
    void stopThen(std::function<void()> next = {});
    // From stopThen() until the stop has reported back on this object's thread.
    bool isStopping() const { return thread.joinable(); }
    // Blocks until a stop under way has ended; for the owner's destructor only.
    void wait();

signals:
    void stopped();

private:
    void onStopped();

    FusionWorker& worker;
    std::thread thread;
    std::function<void()> next;
};
