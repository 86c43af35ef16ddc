// SPDX-License-Identifier: MIT
#include "usb_spec.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "uvc_control.h"

namespace hx::sim::usb {

namespace {

void checkString(const char* key, std::string_view text) {
    const bool plain = std::all_of(text.begin(), text.end(),
                                   [](char letter) { return letter >= ' ' && letter <= '~'; });
    if (!plain) throw SpecError(fmt::format("{}=: printable ASCII only, over USB", key));
}

void checkRefusal(const char* key, int error) {
    if (error == 0 || refusalCode(error)) return;
    throw SpecError(
        fmt::format("{}=refuse:{}: a device can refuse with EBUSY, EILSEQ, EINVAL, EIO, EPIPE, "
                    "ERANGE and EREMOTE",
                    key, strerrorname_np(error)));
}

void check(const CameraConfig& config) {
    checkString("card", config.card.data());
    checkString("serial", config.serial.data());
    if (config.card[0] == 0) throw SpecError("card=: a device needs a name, over USB");
    checkRefusal("exposure", config.exposureError);
    if (config.unitAnswer == UnitAnswer::refused) checkRefusal("xu", config.unitError);
}

}  // namespace

CameraSpec parseUsbCamera(const std::string& text) {
    const CameraSpec spec = parseCamera(text, FrontEnd::usb);
    check(spec.config);
    return spec;
}

void changeUsbCamera(CameraSpec& spec, const std::string& text) {
    CameraSpec changed = spec;
    changeCamera(changed, text);
    check(changed.config);
    spec = changed;
}

}  // namespace hx::sim::usb
