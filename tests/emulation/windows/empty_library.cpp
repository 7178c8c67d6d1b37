// A library that does nothing.
extern "C" __declspec(dllexport) void nothing() {}
