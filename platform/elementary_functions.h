// Sine, cosine and exponential of the start fields and of the transforms' tables, by IEEE double
// operations alone: a seed gives the same flow with every C library and on every system.
#pragma once

namespace zeph {

// The unevaluated sum of two doubles, `lo` being what rounding has lost from `hi`.
struct DoubleSum {
  double hi, lo;
};

struct SineCosine {
  DoubleSum sine, cosine;
};

// Both to within 2^-54 of their own size. |x| is below 2^62.
SineCosine sineCosine(double x);

// e^x to within 2^-54 of its own size, for x from -200 to 0.
DoubleSum exponentialOf(double x);

// The float next to the sum, rounded once (to nearest, ties to even).
float roundToFloat(DoubleSum sum);

}  // namespace zeph
