// The --json document: the room's cameras in its order, each with the report's entry when
// the last solve had one, so a camera left out still says why.
#include "tools/halden_cli/cli_result.hpp"

#include <algorithm>
#include <iostream>

#include "calibration/report_json.hpp"
#include "tools/halden_cli/cli_options.hpp"

namespace {

using Json = nlohmann::ordered_json;

Json orNull(const std::string& text) { return text.empty() ? Json() : Json(text); }

}  // namespace

nlohmann::ordered_json toJson(const CliResult& result) {
    Json solved = result.calibration ? toJson(*result.calibration) : Json::object();
    Json cameras = Json::array();
    for (const int serial : result.roomCameras) {
        Json camera = {{"camera", serial}, {"verdict", verdictKey(CameraReadiness::NoData)}, {"advice", ""}};
        for (const Json& entry : solved.value("cameras", Json::array()))
            if (entry.value("camera", 0) == serial) camera = entry;
        camera["saved"] = std::find(result.saved.begin(), result.saved.end(), serial) != result.saved.end();
        const auto why = result.leftOut.find(serial);
        camera["leftOut"] = why == result.leftOut.end() ? Json() : Json(why->second);
        cameras.push_back(camera);
    }
    return {{"program", "halden-cli"},
            {"version", HALDEN_VERSION},
            {"status", result.status},
            {"exitReason", result.reason.empty() ? exitReason(result.status) : result.reason},
            {"message", orNull(result.message)},
            {"output", orNull(result.output)},
            {"report", orNull(result.report)},
            {"frames", result.frames},
            {"solves", result.solves},
            {"reportVersion", kReportSchemaVersion},
            // Why the world was left unlevelled; null when the floor was found.
            {"floorRefused", orNull(result.calibration ? result.calibration->floorRefused : std::string())},
            {"cameras", cameras}};
}

void printJson(const CliResult& result) { std::cout << toJson(result).dump(2) << std::endl; }
