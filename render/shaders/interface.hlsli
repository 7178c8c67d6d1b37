// Shared by the two shaders of the interface, which is stored row by row as texels of 32 bits:
// alpha, red, green, blue from the highest byte down, multiplied by alpha.

// 144 bytes; render/vulkan/interface_layer.h is the same record on the host.
cbuffer Interface : register(b0) {
  float4 boxes[8];   // left, top, right, bottom of what is covered, in pixels
  float2 extent;     // width and height of the target in pixels
  uint stride;       // texels in a row
  uint targetOutput; // 0 display values, else linear scRGB
};

ByteAddressBuffer texels : register(t0);
