// SPDX-License-Identifier: MIT
// Any text, as a device may answer with, into parseIdentification.
#include <algorithm>
#include <stdexcept>
#include <string>

#include "camera/identification.h"
#include "fuzz/fuzz_support.h"

using hx::Identification;
using hx::IdentificationFault;

namespace {

// A record that shows what has been stored.
Identification unset() {
    return {
        .model = 99, .aeInFrame = true, .name = "?", .lampPresent = false, .specResolution = 99};
}

template <class Value>
bool isOneOf(Value value, std::initializer_list<Value> values) {
    return std::find(values.begin(), values.end(), value) != values.end();
}

// A fault leaves what comes behind it as it was.
void checkOrder(const Identification& id, IdentificationFault fault) {
    const bool modelKnown = fault != IdentificationFault::model;
    PROMISED(modelKnown ? isOneOf<int>(id.model, {1, 2, 5}) : id.model == 99);
    if (!modelKnown || fault == IdentificationFault::exposure) {
        PROMISED(id.aeInFrame && id.name == "?" && !id.lampPresent);
    }
    const bool whole = fault == IdentificationFault::none;
    PROMISED(whole ? isOneOf(id.specResolution, {1, 10, 20, 75}) : id.specResolution == 99);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    const std::string text(data, data + size);
    Identification id = unset();
    try {
        checkOrder(id, parseIdentification(text, id));
    } catch (const std::out_of_range&) {
        // A text that ends before its spectral code. Model and exposure have been understood.
        checkOrder(id, IdentificationFault::spectral);
    }
    if (id.name == "?") return 0;
    PROMISED(text.find(id.name) != std::string::npos);
    const std::size_t dash = id.name.find('-');
    PROMISED(dash == std::string::npos || dash + 1 == id.name.size());
    PROMISED(id.lampPresent == (dash != std::string::npos));
    return 0;
}
