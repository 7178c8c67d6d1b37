// The little of the operating system that the rest needs and the standard library lacks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace zeph::platform {

// "Linux" or "Windows".
const char* systemName();

// The operating system's id of the calling thread; never 0.
std::uint32_t threadId();

// Processors that this process may use, by its affinity and its control groups; at least 1.
int usableProcessors();

// The size of the largest cache of a processor; 32 MiB if it is unknown.
std::size_t lastLevelCacheBytes();

// The processor's model name, or "Processor" if it is unknown.
std::string processorModel();

// A variable of the process's environment as it is now.
std::optional<std::string> environmentVariable(const char* name);

// A path from UTF-8 text. Text with an embedded NUL gives the empty path, which cannot be opened.
std::filesystem::path pathFromUtf8(std::string_view text);
std::string pathToUtf8(const std::filesystem::path& path);

}  // namespace zeph::platform
