// The simulated room driven the way Halden's workers drive a real one: one sender per
// plugged-in camera, and a fusion loop that fills SharedData for the viewer.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "lum/lum.hpp"

class DemoRoom {
public:
    DemoRoom() = default;
    ~DemoRoom();
    DemoRoom(const DemoRoom&) = delete;
    DemoRoom& operator=(const DemoRoom&) = delete;

    // Opens and publishes every listed camera, subscribes the fusion to each at its true
    // pose and starts the fusion loop; `onNewData` runs on that loop's thread after each
    // processed set. False (with a message) when no camera could be used.
    bool start(std::function<void()> onNewData, std::string* message);
    void stop();
    size_t cameraCount() const { return senders.size(); }

private:
    struct Sender {
        unsigned int serial = 0;
        lum::Camera camera;
        std::thread thread;
    };

    void fusionLoop();

    std::vector<std::unique_ptr<Sender>> senders;
    std::vector<lum::CameraIdentifier> subscribed;
    lum::Fusion fusion;
    std::thread fusionThread;
    std::atomic<bool> running{false};
    std::function<void()> newData;
};
