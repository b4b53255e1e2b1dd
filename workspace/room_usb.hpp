// The room made of the cameras plugged into this computer: one shared-memory entry per
// device, at the identity pose, with the line the room set-up shows for it.
#pragma once

#include <string>
#include <vector>

#include "lum/lum.hpp"

namespace roomusb {

struct UsbRoom {
    std::vector<lum::FusionConfiguration> configurations;
    std::vector<std::string> lines;  // "Pyra: <serial> ID: <id>", same order
};

// The room entry for one plugged-in device: opened by serial number, published over
// shared memory, pose still unknown.
lum::FusionConfiguration configurationFor(const lum::DeviceProperties& device);
std::string deviceLine(const lum::DeviceProperties& device);

// Asks the SDK for the devices on this computer; empty when none is plugged in.
UsbRoom discover();

}  // namespace roomusb
