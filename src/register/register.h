// Global registration: the match score, the resampling operations and the
// searches for the angle and shift of each source picture.
#pragma once

#include "run/float_model.h"

#include "image/image.h"

// Dissimilarity of a and b laid over each other with their (x0, y0) on the same
// spot; lower is better. Symmetric. 0.05 (as a float) when nothing overlaps.
double MatchScore(const Image& a, const Image& b);

// source turned by theta and moved by (dx, dy), bilinear, into a new picture
// whose size is the bounding box of the turned source. The caller owns the
// returned pixels.
Image TransformImage(const Image& source, float theta, float dx, float dy);

// Bilinear sampling rule shared by TransformImage and ScaleImage: writes the four
// bytes of source at (sx, sy) to out.
void SampleBilinear(const Image& source, double sx, double sy, unsigned char* out);

// W x H patch centred on source's reference point, turned by theta, nearest
// sample, odd rows empty. The caller owns the returned pixels.
Image RotatedPatch(const Image& source, int32_t width, int32_t height, float theta);

// MatchScore(RotatedPatch(source, width, height, theta), fixed), computed
// without building the patch; infinity, without finishing, once the score is
// known to reach abandonAt (pass infinity for the score itself).
double RotatedPatchScore(const Image& source, int32_t width, int32_t height, float theta,
                         const Image& fixed, double abandonAt);

// Copy scaled by factor (positive), bilinear. The caller owns the returned pixels.
Image ScaleImage(const Image& source, float factor);

// Makes the reduced copy of Reference once for the whole run, and releases
// it. Without it each search reduces Reference itself.
void PrepareTranslationSearch();
void EndTranslationSearch();

// Registers Current onto Reference with the angle fixed (coarse shift on
// reduced copies, then SearchRotation on a narrowed range).
void SearchTranslation();

// Registers Current onto Reference over the angle and shift ranges, logs the
// shift and replaces Current by the transformed picture.
void SearchRotation();
