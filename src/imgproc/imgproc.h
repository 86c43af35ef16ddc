// SPDX-License-Identifier: MIT
// Nine values for every pixel of a frame with a 3 x 3 filter mosaic. No state, no messages; calls
// on distinct buffers are independent. Includes nothing of the library.
#pragma once

/// Estimates all nine channels at every pixel.
///
/// The channel of pixel (r, c) is 3 (r mod 3) + (c mod 3). Each missing channel comes from the
/// nearest pixel that has it, corrected by the gradient along the same direction; where the
/// neighbourhood is not smooth, from plain interpolation. The outer three rows and columns repeat
/// the nearest interior pixel. Frames with fewer than seven rows or columns have no interior: what
/// `output` held is repeated there.
///
/// @param input    rows x cols values, row by row
/// @param output   rows x cols x 9 values, the nine of a pixel together; what is not written keeps
///                 what the caller put there
/// @param mask     rows x cols; used only with `useMask`, else may be null. On entry true: leave
///                 this pixel alone. On return true: left alone, or given up because an estimate
///                 would have needed a masked pixel (its later channels are then not written); the
///                 border repeats the interior
/// @return 1; 0 with nothing touched for a null pointer, an empty frame, fewer than four rows, or
///         fewer than four columns beside seven or more rows
int reconstructNineChannel(const double* input, int rows, int cols, bool useMask, double* output,
                           bool* mask);
