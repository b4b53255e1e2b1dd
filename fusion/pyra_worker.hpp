// The sender worker of one camera plugged into this computer: opens it, switches on
// tracking, publishes its data to the fusion and grabs in a thread of its own.
#pragma once

#include <QThread>

#include <atomic>
#include <memory>
#include <mutex>

#include "core/shared_records.hpp"
#include "core/user_prompts.hpp"
#include "lum/lum.hpp"

class PyraWorker : public QThread {
    Q_OBJECT

public:
    explicit PyraWorker(std::shared_ptr<UserPrompts> prompts = nullptr);
    ~PyraWorker() override;

    // Runs on the caller's thread (the fusion worker's); leaves the camera unopened on failure.
    void setup(lum::FusionConfiguration configuration, AppParams params);
    void askSkeleton();
    void close();
    bool isOpened() const { return camera.isOpened(); }

protected:
    void run() override;

private:
    // Shows a box that does not block and waits, pumping this thread's events, until the
    // user hides it or the worker is stopped.
    void showAndWait(const PromptMessage& message);

    std::atomic<bool> running{false};
    // Set by close() and seen by a run() that begins only after it, which must not loop.
    std::atomic<bool> stopRequested{false};
    // Held by run() for its whole body. Taken after QThread::wait() too, so the end of the
    // loop is ordered before the camera is closed in a way thread checkers can see.
    std::mutex loopMutex;
    lum::Camera camera;
    std::atomic<bool> skeletonRequested{false};
    int32_t detectionConfidence = 0;
    lum::Bodies bodies;
    std::shared_ptr<UserPrompts> prompts;
};
