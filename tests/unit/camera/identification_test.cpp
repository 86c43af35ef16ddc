// SPDX-License-Identifier: MIT
#include "camera/identification.h"

#include <stdexcept>

#include <gtest/gtest.h>

namespace {

using hx::Identification;
using hx::IdentificationFault;
using hx::parseIdentification;

struct Row {
    const char* text;
    IdentificationFault fault;
    int model = 0;
    bool aeInFrame = true;
    const char* name = "";
    bool lamp = false;
    int resolution = 0;
};

constexpr auto kGood = IdentificationFault::none;

const Row kRows[] = {
    {"HX02-V02.1-12345A-L", kGood, 2, true, "12345A-", true, 1},
    {"HX01-V01.3-12345E", kGood, 1, false, "12345E", false, 75},
    {"HX05-V02.-abcdeA(B)-", kGood, 5, true, "abcdeA(B)-", true, 1},
    {"HX01-V01.9.9-12345A/B", kGood, 1, false, "12345A/B", false, 1},
    {"HX01-V01.-     AB", kGood, 1, false, "     AB", false, 1},
    {"HX01-V01.0-12345B-L-X", kGood, 1, false, "12345B-", true, 1},
    {"HX02-V01.0-12345C", kGood, 2, false, "12345C", false, 10},
    {"HX02-V01.0-12345D", kGood, 2, false, "12345D", false, 20},
    {"", IdentificationFault::model},
    {"HX03-V01.0-12345A", IdentificationFault::model},
    {"HX02x-V01.0-12345A", IdentificationFault::model},
    {"hx02-V01.0-12345A", IdentificationFault::model},
    {"HX02", IdentificationFault::exposure, 2},
    {"HX01-V03.0-12345A", IdentificationFault::exposure, 1},
    {"HX01-V01-2.0-12345A", IdentificationFault::exposure, 1},
    {"HX01-V01.0-12345F", IdentificationFault::spectral, 1, false, "12345F"},
    {"HX01-V01.0-12345-L", IdentificationFault::spectral, 1, false, "12345-", true},
    {"HX01-V01.0-12345", IdentificationFault::spectral, 1, false, "12345"},
    // A length that wraps reaches to the end of the text.
    {"HX01-V01.0-ABC-DEF", IdentificationFault::spectral, 1, false, "ABC-", true},
    {"HX01-V01.0-1234-A", kGood, 1, false, "1234-", true, 1},
    // Without a dash behind the dot, or without a dot, the search begins anew at the front.
    {"HX01-V01.0", IdentificationFault::spectral, 1, false, "HX01-", true},
    {"HX01-V01", IdentificationFault::spectral, 1, false, "HX01-", true},
};

TEST(IdentificationText, IsTakenApartByPosition) {
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.text);
        Identification id;
        EXPECT_EQ(parseIdentification(row.text, id), row.fault);
        EXPECT_EQ(id.model, row.model);
        EXPECT_EQ(id.aeInFrame, row.aeInFrame);
        EXPECT_EQ(id.name, row.name);
        EXPECT_EQ(id.lampPresent, row.lamp);
        EXPECT_EQ(id.specResolution, row.resolution);
    }
}

TEST(IdentificationText, CutShortThrowsAndKeepsWhatWasUnderstood) {
    for (const char* text : {"HX01-V01.0-AB", "HX01-V01.0-AB-C", "HX01-V01.0-"}) {
        SCOPED_TRACE(text);
        Identification id;
        EXPECT_THROW(parseIdentification(text, id), std::out_of_range);
        EXPECT_EQ(id.model, 1);
        EXPECT_FALSE(id.aeInFrame);
    }
}

TEST(IdentificationText, NeverTakesALampAwayAgain) {
    Identification id;
    id.lampPresent = true;
    EXPECT_EQ(parseIdentification("HX01-V01.3-12345E", id), kGood);
    EXPECT_TRUE(id.lampPresent);
}

}  // namespace
