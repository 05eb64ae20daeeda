// Fast paths of the resampling operations: the same bytes as the reference
// loops, rows shared among threads.
#pragma once

#include "image/image.h"

// Fills every row of result as TransformImage's reference loop does, with
// C = c, S = s and the shift (dx, dy).
void TransformRowsFast(const Image& source, Image& result, double c, double s, float dx, float dy);

// Fills copy as ScaleImage's reference loop does, sampling at (x g, y g).
void ScaleRowsFast(const Image& source, Image& copy, double g);
