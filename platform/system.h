// The little of the operating system that the rest needs and the standard library lacks.
#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>

namespace zeph::platform {

// "Linux" or "Windows".
const char* systemName();

// The operating system's id of the calling thread; never 0.
std::uint32_t threadId();

// Processors that this process may run on, at least 1.
int usableProcessors();

// The processor's model as the machine tells it, or "Processor".
std::string processorModel();

// Calls `action` in each child that this process forks from here on, before anything else runs
// there; nothing where processes do not fork.
void inForkedChildren(void (*action)());

// A path from UTF-8 text. Text with an embedded NUL gives the empty path, which no file has.
std::filesystem::path pathFromUtf8(std::string_view text);
std::string pathToUtf8(const std::filesystem::path& path);

// A new file to write bytes to, in place of one that is there. Null, with errno set, where that
// cannot be.
std::FILE* createFile(const std::filesystem::path& path);

}  // namespace zeph::platform
