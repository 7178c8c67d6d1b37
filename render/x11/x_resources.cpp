#include "render/x11/x_resources.h"

#include <charconv>
#include <cmath>

namespace zeph::x11 {
namespace {

constexpr double usualResolution = 96;
constexpr std::string_view blanks = " \t";

double numberOf(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(blanks);
  if (begin == std::string_view::npos) return 0;
  text.remove_prefix(begin);
  double number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

}  // namespace

double scaleOfResources(std::string_view text) {
  constexpr std::string_view key = "Xft.dpi:";
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    if (line.starts_with(key)) {
      const double resolution = numberOf(line.substr(key.size()));
      return resolution > 0 && std::isfinite(resolution) ? resolution / usualResolution : 1;
    }
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  return 1;
}

}  // namespace zeph::x11
