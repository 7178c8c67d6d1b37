// From display values (sRGB-encoded) to linear light.
float lightOf(float c) {
  return c <= 0.04045 ? c / 12.92 : pow((c + 0.055) / 1.055, 2.4);
}

float3 linearized(float3 color) {
  return float3(lightOf(color.r), lightOf(color.g), lightOf(color.b));
}
