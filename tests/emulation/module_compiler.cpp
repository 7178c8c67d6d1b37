#include "tests/emulation/module_compiler.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string_view>
#include <vector>

namespace zeph::emulation {
namespace {

namespace fs = std::filesystem;

constexpr const char* languageHeader = "tests/emulation/cuda_language.h";
constexpr const char* functionHeader = "tests/emulation/kernel_function.h";
constexpr const char* flags = " -std=c++20 -O1 -ffp-contract=off -fPIC -shared -w -x c++ ";

std::string contentOf(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// FNV-1a.
std::string hashOf(const std::string& text) {
  std::uint64_t hash = 0xcbf29ce484222325;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
  char digits[17];
  std::snprintf(digits, sizeof(digits), "%016llx", static_cast<unsigned long long>(hash));
  return digits;
}

// The name before the first parenthesis that opens parameters, not launch bounds.
std::string nameFrom(const std::string& source, std::size_t at) {
  for (;;) {
    const std::size_t open = source.find('(', at);
    if (open == std::string::npos) return {};
    const std::size_t end = source.find_last_not_of(" \t\n", open - 1) + 1;
    const std::size_t begin = source.find_last_of(" \t\n)", end - 1) + 1;
    const std::string name = source.substr(begin, end - begin);
    if (name != "__launch_bounds__") return name;
    at = open + 1;
  }
}

std::vector<std::string> kernelsOf(const std::string& source) {
  constexpr std::string_view mark = "__global__";
  std::vector<std::string> names;
  for (std::size_t at = source.find(mark); at != std::string::npos; at = source.find(mark, at)) {
    at += mark.size();
    names.push_back(nameFrom(source, at));
  }
  return names;
}

std::string hostSourceOf(const std::string& source) {
  std::string text = "#define EMULATION_MODULE 1\n";
  text += "#include \"" + std::string(languageHeader) + "\"\n";
  text += "#include \"" + std::string(functionHeader) + "\"\n";
  text += source;
  text += "\nnamespace {\nconstexpr zeph::emulation::KernelFunction kernels[] = {\n";
  for (const std::string& name : kernelsOf(source)) {
    text += "    zeph::emulation::functionOf<&::" + name + ">(\"" + name + "\"),\n";
  }
  text += "    {nullptr, nullptr, nullptr, 0}};\n}  // namespace\n";
  text += "extern \"C\" EMULATION_SHOWN const zeph::emulation::KernelFunction* ";
  return text + moduleKernels + "() {\n  return kernels;\n}\n";
}

// Everything except the source that the compiled code depends on.
std::string circumstances() {
  static const std::string found = contentOf(fs::path(EMULATION_ROOT) / languageHeader) +
                                   contentOf(fs::path(EMULATION_ROOT) / functionHeader) + flags +
                                   EMULATION_COMPILER;
  return found;
}

std::string quoted(const fs::path& path) {
  return "'" + path.string() + "'";
}

}  // namespace

fs::path compileModule(const std::string& source, std::string& log) {
  const std::string text = hostSourceOf(source);
  const fs::path folder = EMULATION_MODULES;
  const std::string hash = hashOf(text + circumstances());
  const fs::path library = folder / (hash + ".so");
  if (fs::exists(library)) return library;
  fs::create_directories(folder);
  // Several processes may compile the same one.
  const std::string mine = hash + "." + std::to_string(getpid());
  const fs::path made = folder / (mine + ".so");
  const fs::path file = folder / (mine + ".cpp");
  const fs::path words = folder / (mine + ".log");
  std::ofstream(file, std::ios::binary) << text;
  const std::string command = quoted(EMULATION_COMPILER) + flags + quoted(file) + " -I " +
                              quoted(EMULATION_ROOT) + " -o " + quoted(made) + " 2> " +
                              quoted(words);
  const bool isCompiled = std::system(command.c_str()) == 0;
  log = contentOf(words);
  fs::remove(words);
  fs::remove(file);
  if (!isCompiled) return {};
  fs::rename(made, library);
  return library;
}

}  // namespace zeph::emulation
