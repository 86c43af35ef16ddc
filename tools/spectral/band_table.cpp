// SPDX-License-Identifier: MIT
#include "spectral/band_table.h"

#include <algorithm>
#include <array>
#include <map>

#include "spectral/cube.h"
#include "spectral/text_table.h"

namespace hx {
namespace {

constexpr std::array<std::string_view, 6> kColumns = {"band",    "wavelength_nm", "wavelength_um",
                                                      "fwhm_nm", "fwhm_um",       "name"};
constexpr std::size_t kLongestName = 64;

/// Which field of a line is which column.
class Columns {
  public:
    explicit Columns(const TableLine& head) : head_(head) {
        for (const std::string& name : head.fields) {
            if (std::count(kColumns.begin(), kColumns.end(), name) == 0) {
                failAtLine(head.number, "there is no column \"" + name +
                                            "\"; known are band, wavelength_nm or wavelength_um, "
                                            "fwhm_nm or fwhm_um, name");
            }
            if (std::count(head.fields.begin(), head.fields.end(), name) > 1) {
                failAtLine(head.number, "column " + name + " is there twice");
            }
        }
        if (!has("band")) failAtLine(head.number, "there is no column band");
        if (has("wavelength_nm") && has("wavelength_um")) {
            failAtLine(head.number, "wavelengths are in nm or in um, not both");
        }
        if ((has("fwhm_nm") && !has("wavelength_nm")) ||
            (has("fwhm_um") && !has("wavelength_um"))) {
            failAtLine(head.number, "fwhm needs the wavelength in the same unit");
        }
    }

    bool has(std::string_view name) const {
        return std::count(head_.fields.begin(), head_.fields.end(), name) > 0;
    }
    std::string unit() const {
        return has("wavelength_nm") ? "_nm" : has("wavelength_um") ? "_um" : "";
    }
    const std::string& field(const TableLine& line, std::string_view name) const {
        const auto at = std::find(head_.fields.begin(), head_.fields.end(), name);
        return line.fields[static_cast<std::size_t>(at - head_.fields.begin())];
    }
    std::size_t count() const { return head_.fields.size(); }

  private:
    const TableLine& head_;
};

double positive(const TableLine& line, const std::string& text) {
    const auto value = realNumber(text);
    if (!value || *value <= 0) failAtLine(line.number, "\"" + text + "\" is no positive number");
    return *value;
}

// Headers have lists with commas and braces.
const std::string& checkedName(const TableLine& line, const std::string& name) {
    const bool plain = std::all_of(name.begin(), name.end(), [](char c) {
        return c >= 0x20 && c < 0x7f && c != '{' && c != '}';
    });
    if (!plain || name.empty() || name.size() > kLongestName) {
        failAtLine(line.number, "a name has 1 to 64 ASCII characters, no braces");
    }
    return name;
}

std::size_t bandOf(const TableLine& line, const std::string& text) {
    const auto band = wholeNumber(text);
    if (!band || *band < 1 || *band > kBands) {
        failAtLine(line.number, "\"" + text + "\" is no band, 1 to 9");
    }
    return *band - 1;
}

}  // namespace

BandTable::BandTable() {
    for (std::size_t i = 1; i <= kBands; ++i) names.push_back("band " + std::to_string(i));
}

BandTable parseBandTable(std::string_view text) {
    const std::vector<TableLine> lines = tableLines(text);
    if (lines.empty()) throw SpectralFault("it is empty");
    const Columns columns(lines.front());
    const std::string unit = columns.unit();
    BandTable table;
    if (!unit.empty()) {
        table.units = unit == "_nm" ? "Nanometers" : "Micrometers";
        table.wavelengths.resize(kBands);
        if (columns.has("fwhm" + unit)) table.widths.resize(kBands);
    }
    std::array<bool, kBands> isThere{};
    for (auto line = lines.begin() + 1; line != lines.end(); ++line) {
        if (line->fields.size() != columns.count()) {
            failAtLine(line->number, "it has " + std::to_string(line->fields.size()) +
                                         " fields, the first line has " +
                                         std::to_string(columns.count()));
        }
        const std::size_t band = bandOf(*line, columns.field(*line, "band"));
        if (isThere[band]) failAtLine(line->number, "the band is there twice");
        isThere[band] = true;
        if (!unit.empty()) {
            table.wavelengths[band] = positive(*line, columns.field(*line, "wavelength" + unit));
        }
        if (!table.widths.empty()) {
            table.widths[band] = positive(*line, columns.field(*line, "fwhm" + unit));
        }
        if (columns.has("name")) {
            table.names[band] = checkedName(*line, columns.field(*line, "name"));
        }
    }
    if (std::count(isThere.begin(), isThere.end(), true) != kBands) {
        throw SpectralFault("it needs a line for each of the nine bands");
    }
    return table;
}

}  // namespace hx
