// The palettes: from a scalar to a colour in display values (sRGB-encoded).

static const float3 inferno[6] = {
  float3(0.001, 0.0, 0.014),   float3(0.258, 0.039, 0.406), float3(0.578, 0.148, 0.404),
  float3(0.865, 0.317, 0.226), float3(0.988, 0.645, 0.04),  float3(0.988, 0.998, 0.645),
};

// s runs from 0 to 5.
float3 infernoColor(float s) {
  const uint k = min(uint(s), 4u);
  return lerp(inferno[k], inferno[k + 1u], s - float(k));
}

// From the base over the middle colour to the highlight.
float3 ramp(float3 base, float3 middle, float3 highlight, float s1, float s2) {
  return lerp(lerp(base, middle, smooth(s1)), highlight, smooth(s2));
}

// t runs from -1 to 1; the two sides have colours of their own.
float3 divergingColor(float t) {
  if (palette == 3u) return infernoColor(5.0 * (0.5 * clamp(t, -1.0, 1.0) + 0.5));
  const bool positive = t >= 0.0;
  float3 middle = positive ? float3(0.025, 0.60, 0.58) : float3(0.48, 0.20, 0.79);
  float3 highlight = positive ? float3(0.48, 1.0, 0.84) : float3(0.94, 0.67, 1.0);
  if (palette == 1u) {
    middle = positive ? float3(0.92, 0.19, 0.065) : float3(0.28, 0.17, 0.69);
    highlight = positive ? float3(1.0, 0.88, 0.43) : float3(0.76, 0.64, 1.0);
  } else if (palette == 2u) {
    middle = positive ? float3(0.01, 0.46, 0.78) : float3(0.14, 0.24, 0.68);
    highlight = positive ? float3(0.70, 1.0, 0.99) : float3(0.70, 0.79, 1.0);
  }
  const float a = saturate(abs(t));
  return ramp(float3(0.017, 0.026, 0.055), middle, highlight, min(a * 1.6666666, 1.0),
              max((a - 0.34) * 1.5151516, 0.0));
}

// t runs from 0 to 1.
float3 sequentialColor(float t) {
  const float a = max(t, 0.0);
  if (palette == 3u) return infernoColor(5.0 * a);
  float3 middle = float3(0.30, 0.17, 0.63);
  float3 highlight = float3(0.36, 1.0, 0.80);
  if (palette == 1u) {
    middle = float3(0.67, 0.10, 0.17);
    highlight = float3(1.0, 0.86, 0.41);
  } else if (palette == 2u) {
    middle = float3(0.02, 0.33, 0.72);
    highlight = float3(0.73, 0.97, 1.0);
  }
  return ramp(float3(0.019, 0.028, 0.063), middle, highlight, min(2.0 * a, 1.0),
              max((a - 0.32) * 1.4705882, 0.0));
}
