// The three planes of a frame, N rows of N floats each, as raw memory.

#ifdef FIELD_PIECES
// For devices whose buffers may not be that long: pieces of 2^27 bytes.
#define EACH_PIECE(USE)                                                                        \
  USE(0) USE(1) USE(2) USE(3) USE(4) USE(5) USE(6) USE(7) USE(8) USE(9) USE(10) USE(11)        \
  USE(12) USE(13) USE(14) USE(15) USE(16) USE(17) USE(18) USE(19) USE(20) USE(21) USE(22) USE(23)
#define DECLARED(k) ByteAddressBuffer field##k : register(t##k);
#define LOADED(k) case k: return field##k.Load(within);

EACH_PIECE(DECLARED)

uint loaded(uint address) {
  const uint within = address & 134217727u;
  switch (address >> 27u) { EACH_PIECE(LOADED) }
  return 0u;
}
#else
ByteAddressBuffer field : register(t0);

uint loaded(uint address) {
  return field.Load(address);
}
#endif

float fieldValue(uint plane, uint i, uint j) {
  return asfloat(loaded(4u * (plane * gridSize * gridSize + j * gridSize + i)));
}
