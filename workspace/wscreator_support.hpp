// What the room set-up dialog checks and keeps without widgets: hand-entered serial numbers
// and network addresses, and where its settings live.
#pragma once

#include <QString>

#include <nlohmann/json.hpp>

#include <optional>
#include <string>

#include "lum/lum.hpp"

namespace wscreator {

// The hub sign-in is kept where other tools of the camera maker look for it.
inline const char* const kHubOrganisation = "Tarsel";
inline const char* const kHubApplication = "PYRA HUB";
// Halden's own memory of the dialog.
inline const char* const kAppOrganisation = "Halden";
inline const char* const kAppApplication = "Halden";
inline const char* const kLastRoomFolderKey = "workspace/lastRoomFolder";

struct NetworkAddress {
    QString ip;  // four decimal numbers joined by dots
    int port = 0;
};

// A serial number typed by the user: a decimal integer above 0.
std::optional<int> parseSerial(const QString& text);

// "a.b.c.d:port", empty parts ignored. The port must be even: the sender publishes on it and
// shakes hands on the one above.
std::optional<NetworkAddress> parseAddress(const QString& text);

// One camera member of a room document kept in a hub workspace, reached over the local network
// at the address it names; nullopt when the member cannot be used. The pose comes out in the
// given frame and unit.
std::optional<lum::FusionConfiguration> storedCamera(const std::string& key, const nlohmann::json& camera,
                                                     lum::COORDINATE_SYSTEM coordinateSystem, lum::UNIT unit);

}  // namespace wscreator
