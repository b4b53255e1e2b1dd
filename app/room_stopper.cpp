// Stops the fusion worker's room on a thread of its own and hands the next step back to
// the GUI thread, so the window keeps drawing and answering while a room goes down.
#include "app/room_stopper.hpp"

#include "fusion/fusion_worker.hpp"

RoomStopper::RoomStopper(FusionWorker& worker_, QObject* parent) : QObject(parent), worker(worker_) {}

RoomStopper::~RoomStopper() { wait(); }

void RoomStopper::stopThen(std::function<void()> next_) {
    if (next_) next = std::move(next_);
    if (isStopping()) return;
    thread = std::thread([this] {
        worker.close();
        QMetaObject::invokeMethod(this, &RoomStopper::onStopped, Qt::QueuedConnection);
    });
}

void RoomStopper::wait() {
    if (thread.joinable()) thread.join();
}

void RoomStopper::onStopped() {
    wait();
    std::function<void()> then = std::move(next);
    next = nullptr;
    emit stopped();
    if (then) then();
}
