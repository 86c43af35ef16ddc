// SPDX-License-Identifier: MIT
#include "camera/identification.h"

#include <span>
#include <string_view>

namespace hx {
namespace {

template <class Value>
struct Meaning {
    std::string_view code;
    Value value;
};

constexpr Meaning<std::uint8_t> kModels[] = {{"HX01", 1}, {"HX02", 2}, {"HX05", 5}};
constexpr Meaning<bool> kExposureFields[] = {{"V01", false}, {"V02", true}};
constexpr Meaning<std::int32_t> kSpectralCodes[] = {{"A", 1},    {"A/B", 1}, {"AB", 1}, {"B", 1},
                                                    {"A(B)", 1}, {"C", 10},  {"D", 20}, {"E", 75}};

template <class Value>
bool lookUp(std::span<const Meaning<Value>> table, std::string_view code, Value& value) {
    for (const Meaning<Value>& row : table) {
        if (row.code != code) continue;
        value = row.value;
        return true;
    }
    return false;
}

}  // namespace

// Positions are plain string positions: npos + 1 is 0, and a length that reaches past the end is
// cut there. Texts with a missing dash or dot get their meaning from this arithmetic.
IdentificationFault parseIdentification(const std::string& text, Identification& id) {
    const std::size_t modelEnd = text.find('-');
    if (!lookUp<std::uint8_t>(kModels, text.substr(0, modelEnd), id.model)) {
        return IdentificationFault::model;
    }

    const std::size_t dot = text.find('.');
    const std::string exposure = text.substr(modelEnd + 1, dot - modelEnd - 1);
    if (!lookUp<bool>(kExposureFields, exposure, id.aeInFrame)) {
        return IdentificationFault::exposure;
    }

    const std::size_t nameDash = text.find('-', dot);
    const std::size_t nextDash = text.find('-', nameDash + 1);
    // Kept: the length is that from dash to dash, so the name keeps its closing dash.
    id.name = text.substr(nameDash + 1, nextDash - nameDash);
    if (nextDash != std::string::npos) id.lampPresent = true;

    const std::size_t codeLength =
        nextDash == std::string::npos ? std::string::npos : nextDash - nameDash - 6;
    if (!lookUp<std::int32_t>(kSpectralCodes, text.substr(nameDash + 6, codeLength),
                              id.specResolution)) {
        return IdentificationFault::spectral;
    }
    return IdentificationFault::none;
}

}  // namespace hx
