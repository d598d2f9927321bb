#pragma once

#include <QByteArrayView>

namespace vellumline {

/// What it costs to have typed `typed` for `meant`, both in small letters: about 1 a slip, less for a likely
/// one (a doubled letter, two letters swapped, a neighbouring key, one vowel for another, letters that sound
/// alike). `limit` + 1 when it is more than `limit`.
double slipCost(QByteArrayView typed, QByteArrayView meant, double limit);

} // namespace vellumline
