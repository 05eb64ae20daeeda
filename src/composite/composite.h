// The running sum of the registered pictures over the reference frame and the
// composite output.
#pragma once

#include "run/float_model.h"

#include <cstdint>

#include "image/image.h"

// Three sums per pixel of Reference (blue, green, red), row after row; null
// when no composite was asked for.
extern uint32_t* Accumulator;

// Creates the zeroed Accumulator for Reference's size.
void CreateAccumulator();

// Adds image, paired with Reference through the reference points and weighted
// by its byte 3, into Accumulator.
void AccumulateComposite(const Image& image);

// Writes the three FITS planes and the mean BMP, and releases Accumulator.
void SaveComposite();
