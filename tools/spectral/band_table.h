// SPDX-License-Identifier: MIT
// What the bands are called and which light they see. The camera does not tell: the user does, by a
// table of comma-separated values with one line a band,
//
//     band,wavelength_nm,fwhm_nm,name
//     1,455,22,blue
//
// in any order of lines and columns; only "band" (from 1) is needed. "_um" instead of "_nm": in
// micrometres. Lines that begin with # and empty lines do not count.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace hx {

struct BandTable {
    std::vector<std::string> names;   ///< always nine
    std::vector<double> wavelengths;  ///< nine, or none
    std::vector<double> widths;       ///< full width at half maximum; nine, or none
    std::string units;                ///< Nanometers or Micrometers; empty without wavelengths

    /// "band 1" to "band 9".
    BandTable();
};

/// Throws SpectralFault, which tells the line.
BandTable parseBandTable(std::string_view text);

}  // namespace hx
