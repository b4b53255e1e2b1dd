// body_relay: one camera of a scene publishing its bodies on the local network, as another
// computer in the room would. Runs until SIGINT or SIGTERM.
#include <arpa/inet.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

#include "lum/lum.hpp"
#include "pyra_sim/scene.hpp"
#include "tools/stop_flag.hpp"

namespace {

const char* kUsage =
    "usage: body_relay [--scene FILE] --serial N --port P [--bind ADDRESS]\n"
    "Publishes camera N of the scene on the local network: data on port P, handshake on P+1.\n"
    "Both ports listen on every interface, or only on the IPv4 ADDRESS given with --bind\n"
    "(127.0.0.1 keeps the camera to this computer).\n"
    "Without --scene, the scene is the file named by PYRA_SIM_SCENE, or the default room.\n"
    "Stops cleanly on SIGINT or SIGTERM.\n";

bool parseNumber(const char* text, long lo, long hi, long& value) {
    char* end = nullptr;
    errno = 0;
    value = std::strtol(text, &end, 10);
    return errno == 0 && end != text && *end == '\0' && value >= lo && value <= hi;
}

int fail(const std::string& message, int code = 1) {
    std::cerr << "body_relay: " << message << std::endl;
    return code;
}

}  // namespace

int main(int argc, char** argv) {
    std::string scenePath, bindAddress;
    long serial = -1, port = -1;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            std::cout << kUsage;
            return 0;
        }
        if (i + 1 >= argc) return fail("missing value after " + arg + "\n" + kUsage, 2);
        const char* value = argv[++i];
        if (arg == "--scene") scenePath = value;
        else if (arg == "--serial") {
            if (!parseNumber(value, 1, 4294967295L, serial)) return fail(std::string("bad serial \"") + value + "\"", 2);
        } else if (arg == "--port") {
            if (!parseNumber(value, 1, 65534, port)) return fail(std::string("bad port \"") + value + "\" (1..65534)", 2);
        } else if (arg == "--bind") {
            in_addr parsed{};
            if (::inet_pton(AF_INET, value, &parsed) != 1)
                return fail(std::string("bad --bind \"") + value + "\": not an IPv4 address such as 127.0.0.1", 2);
            bindAddress = value;
        } else {
            return fail("unknown option " + arg + "\n" + kUsage, 2);
        }
    }
    if (serial < 0 || port < 0) return fail(std::string("--serial and --port are required\n") + kUsage, 2);

    pyra_sim::Scene scene;
    std::string error;
    if (!scenePath.empty()) {
        if (!pyra_sim::loadScene(scenePath, scene, &error)) return fail("scene " + error);
    } else {
        scene = pyra_sim::activeScene();
    }
    const pyra_sim::CameraSettings* camera = pyra_sim::findCamera(scene, unsigned(serial));
    if (!camera) {
        std::string known;
        for (const auto& c : scene.cameras) known += (known.empty() ? "" : ", ") + std::to_string(c.serial);
        return fail("serial " + std::to_string(serial) + " is not a camera of the scene (cameras: " +
                    (known.empty() ? "none" : known) + ")");
    }
    pyra_sim::setActiveScene(scene);
    // This process is the computer the camera is attached to.
    pyra_sim::setAllCamerasPluggedIn(true);

    lum::InitParameters init;
    init.input.setFromSerialNumber(unsigned(serial));
    init.unit = lum::UNIT::METER;
    init.coordinateSystem = lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP;
    init.verbose = 0;
    lum::Camera cam;
    lum::ERROR_CODE code = cam.open(init);
    if (code != lum::ERROR_CODE::SUCCESS)
        return fail("cannot open camera " + std::to_string(serial) + ": " + lum::toString(code));
    cam.enablePositionalTracking();
    lum::BodyTrackingParameters body;
    body.bodyFormat = camera->bodyFormat;
    code = cam.enableBodyTracking(body);
    if (code != lum::ERROR_CODE::SUCCESS) return fail("body tracking: " + lum::toString(code));
    lum::CommunicationParameters link;
    link.setForLocalNetwork(bindAddress, int(port));
    code = cam.startPublishing(link);
    if (code == lum::ERROR_CODE::PORT_IN_USE)
        return fail("port " + std::to_string(port) + " or " + std::to_string(port + 1) + " is busy");
    if (code != lum::ERROR_CODE::SUCCESS) return fail("cannot publish: " + lum::toString(code));

    struct sigaction action {};
    action.sa_handler = stopflag::onSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    std::cout << "body_relay: camera " << serial << " publishing on "
              << (bindAddress.empty() ? std::string("every interface") : bindAddress) << ", port " << port
              << " (handshake " << port + 1 << ")" << std::endl;

    lum::Bodies bodies;
    lum::BodyTrackingRuntimeParameters runtime;
    while (!stopflag::raised) {
        code = cam.grab();
        if (code != lum::ERROR_CODE::SUCCESS) return fail("grab failed: " + lum::toString(code), 3);
        cam.retrieveBodies(bodies, runtime);
    }
    cam.close();
    std::cout << "body_relay: camera " << serial << " stopped" << std::endl;
    return 0;
}
