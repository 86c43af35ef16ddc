// SPDX-License-Identifier: MIT
#include "camera_spec.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>
#include <string_view>
#include <utility>
#include <vector>

#include "call_names.h"

namespace hx::sim {

namespace {

using Setter = void (*)(CameraSpec&, std::string_view);

[[noreturn]] void fail(const std::string& message) {
    throw SpecError(message);
}

template <typename Number>
Number parseNumber(std::string_view text, Number lowest, Number highest) {
    Number number = {};
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc{} || stop != end) fail(fmt::format("'{}' is no number", text));
    // Written so that a NaN is out of range too.
    if (!(number >= lowest && number <= highest)) {
        fail(fmt::format("{} is not within {} to {}", text, lowest, highest));
    }
    return number;
}

double parseSeconds(std::string_view text) {
    return parseNumber(text, 0.0, 86400.0);
}

std::int64_t parseFrames(std::string_view text) {
    return parseNumber<std::int64_t>(text, 0, std::numeric_limits<std::int32_t>::max());
}

int parseErrno(std::string_view name) {
    for (int error = 1; error < 256; ++error) {
        const char* known = strerrorname_np(error);
        if (known && name == known) return error;
    }
    fail(fmt::format("'{}' is no errno name", name));
}

// "\xHH" is a byte, a backslash before any other character takes it as it is.
std::string unescape(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        if (text[0] != '\\') {
            result += text[0];
            text.remove_prefix(1);
        } else if (text.size() >= 4 && text[1] == 'x') {
            unsigned value = 0;
            const auto [stop, error] = std::from_chars(text.data() + 2, text.data() + 4, value, 16);
            if (error != std::errc{} || stop != text.data() + 4) fail("'\\x' needs two digits");
            result += static_cast<char>(value);
            text.remove_prefix(4);
        } else if (text.size() >= 2 && text[1] != 'x') {
            result += text[1];
            text.remove_prefix(2);
        } else {
            fail("a backslash stands before '\\', ',' or xHH");
        }
    }
    return result;
}

// Splits at commas that have no backslash before them; backslashes stay.
std::vector<std::string_view> splitAtCommas(std::string_view text) {
    std::vector<std::string_view> parts;
    std::size_t begin = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\') {
            ++i;
        } else if (text[i] == ',') {
            parts.push_back(text.substr(begin, i - begin));
            begin = i + 1;
        }
    }
    parts.push_back(text.substr(begin));
    return parts;
}

std::pair<std::string_view, std::string_view> splitAt(std::string_view text, char mark) {
    const auto at = text.find(mark);
    if (at == text.npos) return {text, {}};
    return {text.substr(0, at), text.substr(at + 1)};
}

void setIdentification(CameraSpec& spec, std::string_view value) {
    const std::string text = unescape(value);
    if (text.size() > kIdentificationBytes) {
        fail(fmt::format("{} bytes, at most {} fit", text.size(), kIdentificationBytes));
    }
    spec.config.identification = {};
    std::copy(text.begin(), text.end(), spec.config.identification.begin());
}

template <std::size_t Size>
void copyText(std::array<char, Size>& to, std::string_view value) {
    const std::string text = unescape(value);
    if (text.size() >= Size) fail(fmt::format("{} bytes, at most {} fit", text.size(), Size - 1));
    to = {};
    std::copy(text.begin(), text.end(), to.begin());
}

void setCard(CameraSpec& spec, std::string_view value) {
    copyText(spec.config.card, value);
}

void setSerial(CameraSpec& spec, std::string_view value) {
    copyText(spec.config.serial, value);
}

void setRate(CameraSpec& spec, std::string_view value) {
    spec.config.rate = parseNumber(value, 0.0, 10000.0);
    if (spec.config.rate > 0 && spec.config.rate < 0.01) fail("0 or at least 0.01");
}

void setNode(CameraSpec& spec, std::string_view value) {
    spec.node = parseNumber<std::uint32_t>(value, 0, kMaxMinor - 1);
}

void setScene(CameraSpec& spec, std::string_view value) {
    constexpr std::array<std::string_view, 4> kScenes = {"ramp", "target", "dark", "white"};
    const auto found = std::find(kScenes.begin(), kScenes.end(), value);
    if (found == kScenes.end()) fail("known scenes are ramp, target, dark and white");
    spec.config.scene = static_cast<Scene>(found - kScenes.begin());
}

void setExposure(CameraSpec& spec, std::string_view value) {
    CameraConfig& config = spec.config;
    if (value == "accept" || value.starts_with("refuse:")) {
        config.exposureError = value == "accept" ? 0 : parseErrno(splitAt(value, ':').second);
        return;
    }
    config.exposurePresent = value != "none";
    if (!config.exposurePresent) return;
    constexpr std::int32_t kHighest = std::numeric_limits<std::int32_t>::max();
    const auto [low, rest] = splitAt(value, ':');
    const auto [high, initial] = splitAt(rest, ':');
    config.exposureMinimum = parseNumber(low, 0, kHighest);
    config.exposureMaximum = parseNumber(high, config.exposureMinimum, kHighest);
    config.exposureDefault =
        initial.empty()
            ? std::clamp(kDefaultExposure, config.exposureMinimum, config.exposureMaximum)
            : parseNumber(initial, config.exposureMinimum, config.exposureMaximum);
}

void setAutoExposure(CameraSpec& spec, std::string_view value) {
    if (value != "held") fail("the only value is held");
    spec.config.autoExposureHeld = true;
}

void setRing(CameraSpec& spec, std::string_view value) {
    spec.config.ringLimit = parseNumber(value, 0, 32);
}

void setFormat(CameraSpec& spec, std::string_view value) {
    if (value == "refuse" && spec.frontEnd == FrontEnd::preload) {
        spec.config.formatRefused = true;
        return;
    }
    const auto [width, height] = splitAt(value, 'x');
    spec.config.width = parseNumber<std::uint32_t>(width, 16, 4096);
    spec.config.height = parseNumber<std::uint32_t>(height, 16, 4096);
    if (spec.config.width % 2) fail("the width must be even");
}

void setUnit(CameraSpec& spec, std::string_view value) {
    const auto [kind, detail] = splitAt(value, ':');
    CameraConfig& config = spec.config;
    config.unitLength = kIdentificationBytes;
    if (value == "absent") {
        config.unitAnswer = UnitAnswer::absent;
    } else if (value == "complete") {
        config.unitAnswer = UnitAnswer::complete;
    } else if (kind == "length") {
        config.unitAnswer = UnitAnswer::complete;
        config.unitLength = parseNumber<std::uint32_t>(detail, 1, 256);
    } else if (value == "short") {
        config.unitAnswer = UnitAnswer::cut;
    } else if (kind == "refuse") {
        config.unitAnswer = UnitAnswer::refused;
        config.unitError = parseErrno(detail);
    } else if (kind == "slow") {
        config.unitAnswer = UnitAnswer::slow;
        config.unitDelay = parseSeconds(detail);
    } else {
        fail("use complete, absent, refuse:ERRNO, slow:SECONDS, short or length:N");
    }
}

void setAccess(CameraSpec& spec, std::string_view value) {
    if (value != "denied") fail("the only value is denied");
    spec.config.accessDenied = true;
}

void setStall(CameraSpec& spec, std::string_view value) {
    spec.config.stallAfter = parseFrames(value);
}

void setUnplug(CameraSpec& spec, std::string_view value) {
    const auto [frames, moment] = splitAt(value, ':');
    const bool overUsb = spec.frontEnd == FrontEnd::usb;
    spec.config.unplugAfter = parseFrames(frames);
    // A device does not see when a frame is taken, a node not when half of it has come.
    if (moment == "taken" && !overUsb) {
        if (spec.config.unplugAfter == 0) fail("no frame is taken before 0");
        spec.config.unplugMoment = UnplugMoment::taken;
    } else if (moment == "waiting") {
        spec.config.unplugMoment = UnplugMoment::waiting;
    } else if (moment == "mid-frame" && overUsb) {
        spec.config.unplugMoment = UnplugMoment::middle;
    } else if (moment == "blocked" || frames.size() == value.size()) {
        spec.config.unplugMoment = UnplugMoment::blocked;
    } else {
        fail(fmt::format("the moment is blocked, waiting or {}", overUsb ? "mid-frame" : "taken"));
    }
}

void setReplug(CameraSpec& spec, std::string_view value) {
    spec.config.replugAfter = parseSeconds(value);
}

void addFault(CameraSpec& spec, std::string_view value) {
    const auto [which, error] = splitAt(value, '=');
    const auto [call, number] = splitAt(which, ':');
    const auto found = std::find(kCallNames.begin(), kCallNames.end(), call);
    if (found == kCallNames.end()) {
        fail(fmt::format("'{}' is no call; known: {}", call, fmt::join(kCallNames, " ")));
    }
    if (spec.config.faultCount == kMaxFaults) fail(fmt::format("more than {}", kMaxFaults));
    Fault& fault = spec.config.faults[spec.config.faultCount++];
    fault.call = static_cast<Call>(found - kCallNames.begin());
    fault.nth = number == "*" ? kEveryCall : parseNumber<std::uint32_t>(number, 1, 1'000'000'000);
    fault.error = parseErrno(error);
}

struct Key {
    std::string_view name;
    Setter set;
    std::string_view form;
    std::string_view usbForm;  // empty: means nothing to a camera on USB
    std::string_view meaning;
};

constexpr std::string_view kExposureForm = "MIN:MAX[:DEFAULT]|none|refuse:ERRNO|accept";
constexpr std::string_view kUnitForm =
    "complete|absent|refuse:ERRNO|slow:SECONDS|short|length:BYTES";

constexpr Key kKeys[] = {
    {"rate", setRate, "N", "N", "frames per second; 0: as fast as they are taken (20)"},
    {"exposure", setExposure, kExposureForm, kExposureForm,
     "range of the control (1:10000:156), and whether it can be set (accept)"},
    {"scene", setScene, "ramp|target|dark|white", "ramp|target|dark|white",
     "what the camera sees (ramp)"},
    {"node", setNode, "N", "", "number of the capture node (the next free one)"},
    {"card", setCard, "TEXT", "TEXT", "name of the device (Webcam gadget: UVC Camera)"},
    {"serial", setSerial, "TEXT", "TEXT", "serial number of the device (none)"},
    {"fault", addFault, "CALL:N=ERRNO", "", "the N-th CALL of a process fails; N = *: each one"},
    {"ring", setRing, "N", "", "grants at most N buffers"},
    {"format", setFormat, "refuse|WxH", "WxH", "the only size (1600x1200), if any"},
    {"auto-exposure", setAutoExposure, "held", "held",
     "an auto-exposure control holds the exposure"},
    {"xu", setUnit, kUnitForm, kUnitForm, "how the identification is told (complete)"},
    {"access", setAccess, "denied", "", "open fails with EACCES"},
    {"stall", setStall, "N", "N", "nothing comes after N frames of a stream"},
    {"unplug", setUnplug, "N[:blocked|taken|waiting]", "N[:blocked|waiting|mid-frame]",
     "gone after N frames"},
    {"replug", setReplug, "SECONDS", "SECONDS", "plugged in again that long after the unplug"},
};

const Key* findKey(std::string_view name) {
    const auto* found = std::find_if(std::begin(kKeys), std::end(kKeys),
                                     [&](const Key& key) { return key.name == name; });
    return found == std::end(kKeys) ? nullptr : found;
}

void setKey(CameraSpec& spec, std::string_view name, std::string_view value) {
    const Key* key = findKey(name);
    if (!key) fail(fmt::format("unknown key '{}'", name));
    if (spec.frontEnd == FrontEnd::usb && key->usbForm.empty()) {
        fail(fmt::format("'{}' means nothing to a camera on USB", name));
    }
    try {
        key->set(spec, value);
    } catch (const SpecError& error) {
        fail(fmt::format("{}={}: {}", name, value, error.what()));
    }
}

void setKeyText(CameraSpec& spec, std::string_view text) {
    if (text.find('=') == text.npos) fail(fmt::format("'{}' is not KEY=VALUE", text));
    const auto [name, value] = splitAt(text, '=');
    setKey(spec, name, value);
}

CameraSpec defaultSpec() {
    CameraSpec spec = {};
    CameraConfig& config = spec.config;
    copyText(config.card, "Webcam gadget: UVC Camera");
    config.rate = 20;
    config.width = 1600;
    config.height = 1200;
    config.exposurePresent = true;
    config.exposureMinimum = 1;
    config.exposureMaximum = 10000;
    config.exposureDefault = kDefaultExposure;
    config.unitLength = kIdentificationBytes;
    config.ringLimit = -1;
    config.stallAfter = -1;
    config.unplugAfter = -1;
    config.replugAfter = -1;
    return spec;
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view kBlank = " \t\r";
    const auto begin = text.find_first_not_of(kBlank);
    if (begin == text.npos) return {};
    return text.substr(begin, text.find_last_not_of(kBlank) - begin + 1);
}

void readModelLine(CameraSpec& spec, std::string_view line, bool& identified) {
    if (line.empty() || line[0] == '#') return;
    if (line.find('=') == line.npos) fail(fmt::format("'{}' is not KEY = VALUE", line));
    const auto [left, right] = splitAt(line, '=');
    const auto name = trimmed(left);
    if (name == "identification") {
        setIdentification(spec, trimmed(right));
        identified = true;
    } else {
        setKey(spec, name, trimmed(right));
    }
}

void readModelFile(CameraSpec& spec, const std::string& path) {
    std::ifstream file(path);
    if (!file) fail(fmt::format("cannot read {}: {}", path, std::strerror(errno)));
    bool identified = false;
    int number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        try {
            readModelLine(spec, trimmed(line), identified);
        } catch (const SpecError& error) {
            fail(fmt::format("{}:{}: {}", path, number, error.what()));
        }
    }
    if (file.bad()) fail(fmt::format("cannot read {}: {}", path, std::strerror(errno)));
    if (!identified) fail(fmt::format("{}: no identification", path));
}

void checkTogether(const CameraSpec& spec) {
    if (spec.config.replugAfter >= 0 && spec.config.unplugAfter < 0) {
        fail("replug= needs unplug=");
    }
    if (spec.config.autoExposureHeld && !spec.config.exposurePresent) {
        fail("auto-exposure= needs an exposure");
    }
}

}  // namespace

CameraSpec parseCamera(const std::string& text, FrontEnd frontEnd) {
    CameraSpec spec = defaultSpec();
    spec.frontEnd = frontEnd;
    const auto parts = splitAtCommas(text);
    if (!parts[0].empty() && parts[0][0] == '@') {
        readModelFile(spec, unescape(parts[0].substr(1)));
    } else {
        setIdentification(spec, parts[0]);
    }
    for (std::size_t i = 1; i < parts.size(); ++i) setKeyText(spec, parts[i]);
    checkTogether(spec);
    return spec;
}

void changeCamera(CameraSpec& spec, const std::string& text) {
    CameraSpec changed = spec;
    setKeyText(changed, text);
    checkTogether(changed);
    spec = changed;
}

ForeignSpec parseForeign(const std::string& text) {
    const auto parts = splitAtCommas(text);
    CameraSpec spec = defaultSpec();
    setCard(spec, parts[0]);
    for (std::size_t i = 1; i < parts.size(); ++i) {
        if (!parts[i].starts_with("node=")) {
            fail(fmt::format("'{}': a foreign device takes node=N only", parts[i]));
        }
        setKeyText(spec, parts[i]);
    }
    return {spec.config.card.data(), spec.node};
}

std::string keyHelp(FrontEnd frontEnd) {
    std::string text;
    for (const Key& key : kKeys) {
        const auto form = frontEnd == FrontEnd::usb ? key.usbForm : key.form;
        if (!form.empty())
            text += fmt::format("  {}={}\n        {}\n", key.name, form, key.meaning);
    }
    return text;
}

}  // namespace hx::sim
