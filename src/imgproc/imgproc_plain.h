// SPDX-License-Identifier: MIT
// What reconstructNineChannel must equal, bit for bit: the same contract, told pixel by pixel.
#pragma once

int reconstructNineChannelPlain(const double* input, int rows, int cols, bool useMask,
                                double* output, bool* mask);
