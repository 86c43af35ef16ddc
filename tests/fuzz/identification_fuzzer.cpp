// SPDX-License-Identifier: MIT
// Any text, as a device may answer with, into parseIdentification.
#include <stdexcept>
#include <string>

#include "camera/identification.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    const std::string text(data, data + size);
    hx::Identification id;
    try {
        const bool taken = parseIdentification(text, id) == hx::IdentificationFault::none;
        PROMISED(!taken || (id.model != 0 && id.specResolution != 0));
    } catch (const std::out_of_range&) {
        // A text that ends before its spectral code.
    }
    PROMISED(text.find(id.name) != std::string::npos);
    const std::size_t dash = id.name.find('-');
    PROMISED(dash == std::string::npos || dash + 1 == id.name.size());
    PROMISED(id.lampPresent == (dash != std::string::npos));
    return 0;
}
