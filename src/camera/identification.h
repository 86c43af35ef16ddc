// SPDX-License-Identifier: MIT
// The text by which a camera's firmware identifies it, taken apart. No system calls.
//
//     HX02-V02.1-12345A-L
//     |    |     |    | ' a further dash: the camera has a lamp
//     |    |     |    '-- spectral code, behind five characters of the name
//     |    |     '------- name, up to and with the next dash
//     |    '------------- how exposure is reported, up to the dot
//     '------------------ model
#pragma once

#include <cstdint>
#include <string>

namespace hx {

struct Identification {
    std::uint8_t model = 0;           ///< 1, 2 or 5 for HX01, HX02 and HX05
    bool aeInFrame = true;            ///< V02: the exposure is the first sample of each frame
    std::string name;                 ///< with its closing dash, where there is one
    bool lampPresent = false;         ///< only ever set
    std::int32_t specResolution = 0;  ///< 1, 10, 20 or 75
};

enum class IdentificationFault { none, model, exposure, spectral };

/// Takes `text` apart into `id`. What stands before a fault has been stored, the rest of `id` is
/// left as it was.
/// @throws std::out_of_range for a text that ends before its spectral code
IdentificationFault parseIdentification(const std::string& text, Identification& id);

}  // namespace hx
