// Checks of hand-entered cameras for the room set-up dialog.
// Kept free of widgets so the rules read in one place.
#include "workspace/wscreator_support.hpp"

#include <QStringList>

#include <cstdint>
#include <vector>

namespace wscreator {

std::optional<int> parseSerial(const QString& text) {
    bool ok = false;
    const int value = text.toInt(&ok, 10);
    if (!ok || value <= 0) return std::nullopt;
    return value;
}

std::optional<NetworkAddress> parseAddress(const QString& text) {
    const QStringList parts = text.split(':', Qt::SkipEmptyParts);
    if (parts.size() != 2) return std::nullopt;
    const QStringList octets = parts[0].split('.', Qt::SkipEmptyParts);
    if (octets.size() != 4) return std::nullopt;
    QStringList canonical;
    for (const QString& octet : octets) {
        bool ok = false;
        const int value = octet.toInt(&ok, 10);
        if (!ok || value < 0 || value > 255) return std::nullopt;
        canonical << QString::number(value);
    }
    bool ok = false;
    const int port = parts[1].toInt(&ok, 10);
    if (!ok || port < 1 || port > 65535 || port % 2 != 0) return std::nullopt;
    return NetworkAddress{canonical.join('.'), port};
}

std::optional<lum::FusionConfiguration> storedCamera(const std::string& key, const nlohmann::json& camera,
                                                     lum::COORDINATE_SYSTEM coordinateSystem, lum::UNIT unit) {
    const nlohmann::json::json_pointer ipPath("/input/fusion/configuration/ip");
    const nlohmann::json::json_pointer configurationPath("/input/fusion/configuration");
    if (!camera.is_object() || !camera.contains(ipPath) || !camera.at(ipPath).is_string()) return std::nullopt;
    const nlohmann::json& configuration = camera.at(configurationPath);
    if (!configuration.is_object() || !configuration.contains("port")) return std::nullopt;
    // A document built in memory holds its ports as signed integers and one parsed from text
    // as unsigned: both are the same whole number, and both must read back.
    const nlohmann::json& port = configuration.at("port");
    if (!port.is_number_integer() || port.get<std::int64_t>() < 0 || port.get<std::int64_t>() > 65535)
        return std::nullopt;
    const nlohmann::json& input = camera.at("input");
    if (!input.is_object() || !input.contains("pyra")) return std::nullopt;

    // The SDK's reader owns the pose conventions of the document; give it this one member.
    const nlohmann::json single = {{key, camera}};
    std::string error;
    std::vector<lum::FusionConfiguration> read =
        lum::readFusionConfiguration(single.dump(), coordinateSystem, unit, &error);
    if (read.size() != 1) return std::nullopt;
    lum::FusionConfiguration result = read.front();
    result.communication_parameters.setForLocalNetwork(camera.at(ipPath).get<std::string>(),
                                                       static_cast<int>(port.get<std::int64_t>()));
    return result;
}

}  // namespace wscreator
