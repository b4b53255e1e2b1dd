// Builds a room from the cameras plugged into this computer. Shared by the room set-up
// dialog and the headless calibration, so both open the cameras the same way.
#include "workspace/room_usb.hpp"

namespace roomusb {

lum::FusionConfiguration configurationFor(const lum::DeviceProperties& device) {
    lum::FusionConfiguration configuration;
    configuration.serial_number = static_cast<int>(device.serial_number);
    configuration.input_type.setFromSerialNumber(device.serial_number);
    configuration.communication_parameters.setForSharedMemory();
    configuration.pose = lum::Transform::identity();
    return configuration;
}

std::string deviceLine(const lum::DeviceProperties& device) {
    return "Pyra: " + std::to_string(device.serial_number) + " ID: " + std::to_string(device.id);
}

UsbRoom discover() {
    UsbRoom room;
    for (const lum::DeviceProperties& device : lum::Camera::getDeviceList()) {
        room.configurations.push_back(configurationFor(device));
        room.lines.push_back(deviceLine(device));
    }
    return room;
}

}  // namespace roomusb
