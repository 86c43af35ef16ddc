// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <vector>

#include "camera_choice.h"
#include "camera_survey.h"
#include "commands.h"
#include "exit_code.h"
#include "terminal.h"

namespace hxcam {
namespace {

using nlohmann::json;
using Row = std::vector<std::string>;

// Columns as wide as their widest entry; the last one is free.
std::string table(const std::vector<Row>& rows) {
    std::vector<std::size_t> widths(rows[0].size(), 0);
    for (const Row& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
    }
    std::string text;
    for (const Row& row : rows) {
        for (std::size_t i = 0; i + 1 < row.size(); ++i) {
            text += fmt::format("{:<{}}  ", row[i], widths[i]);
        }
        text += row.back() + '\n';
    }
    return text;
}

std::string cameraTable(const std::vector<Camera>& cameras) {
    std::vector<Row> rows = {
        {"INDEX", "NODE", "NAME", "MODEL", "SPECTRAL", "LAMP", "EXPOSURE", "IDENTIFICATION"}};
    for (const Camera& camera : cameras) {
        rows.push_back(
            {std::to_string(rows.size() - 1), camera.node, shown(camera.id.name),
             shown(camera.modelName()),
             fmt::format("{} ({})", shown(camera.spectralCode), camera.id.specResolution),
             camera.id.lampPresent ? "yes" : "no",
             fmt::format("{}..{}", camera.exposure.min, camera.exposure.max), shown(camera.text)});
    }
    return table(rows);
}

std::string otherTable(const std::vector<OtherNode>& others) {
    std::vector<Row> rows = {{"NODE", "CARD", "LEFT OUT BECAUSE"}};
    for (const OtherNode& other : others) {
        rows.push_back({other.node, shown(other.card), shown(other.reason)});
    }
    return table(rows);
}

json describe(const Camera& camera, std::size_t index) {
    return {{"index", index},
            {"node", camera.node},
            {"name", camera.id.name},
            {"model", camera.modelName()},
            {"identification", camera.text},
            {"spectral_code", camera.spectralCode},
            {"spectral_resolution", camera.id.specResolution},
            {"lamp", camera.id.lampPresent},
            {"exposure_min", camera.exposure.min},
            {"exposure_max", camera.exposure.max},
            {"exposure_step", camera.exposure.step},
            {"exposure_default", camera.exposure.initial},
            {"exposure_in_frame", camera.id.aeInFrame},
            {"card", camera.card},
            {"bus", camera.bus}};
}

json describe(const Survey& survey, bool all) {
    json result = {{"cameras", json::array()}};
    for (std::size_t i = 0; i < survey.cameras.size(); ++i) {
        result["cameras"].push_back(describe(survey.cameras[i], i));
    }
    if (!all) return result;
    result["other_nodes"] = json::array();
    for (const OtherNode& other : survey.others) {
        result["other_nodes"].push_back(
            {{"node", other.node}, {"card", other.card}, {"reason", other.reason}});
    }
    return result;
}

}  // namespace

int runList(const ListOptions& options, const Interrupt& interrupt) {
    const Survey survey = surveyCameras(options.timeout, interrupt);
    if (!options.all) reportUnasked(survey);
    if (options.json) {
        // Texts of devices need not be UTF-8; JSON must be.
        print(describe(survey, options.all).dump(2, ' ', false, json::error_handler_t::replace) +
              '\n');
    } else {
        if (!survey.cameras.empty()) print(cameraTable(survey.cameras));
        if (options.all && !survey.others.empty()) {
            if (!survey.cameras.empty()) print("\n");
            print(otherTable(survey.others));
        }
    }
    if (!survey.cameras.empty()) return exitOk;
    complain("no camera found");
    return codeWithoutCamera(survey);
}

}  // namespace hxcam
