// The dialog programs of Linux desktops.
#include <array>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/linux/child_process.h"
#include "platform/linux/dialog_backends.h"

namespace zeph::platform {
namespace {

using Words = std::vector<std::string>;

constexpr int cancelledCode = 1;
constexpr int closedCode = 252;  // yad's exit code if its window was closed

Words forZenity(const SaveQuestion& question) {
  return {"--file-selection",
          "--save",
          "--confirm-overwrite",
          "--title=" + question.title,
          "--filename=" + question.name,
          "--file-filter=" + question.filterName + " | *." + question.suffix};
}

Words forYad(const SaveQuestion& question) {
  Words words = forZenity(question);
  words.front() = "--file";
  return words;
}

std::string windowNumber(const SaveQuestion& question) {
  return std::to_string(reinterpret_cast<std::uintptr_t>(question.parent));
}

// kdialog always asks before it replaces a file. It ignores a name without a folder.
Words forKdialog(const SaveQuestion& question) {
  std::error_code error;
  const std::filesystem::path path = std::filesystem::absolute(question.name, error);
  Words words = {"--title", question.title, "--getsavefilename",
                 error ? question.name : path.string(),
                 question.filterName + " (*." + question.suffix + ")"};
  if (question.parent != nullptr) words.insert(words.begin(), {"--attach", windowNumber(question)});
  return words;
}

struct Program {
  const char* name;
  Words (*arguments)(const SaveQuestion&);
};

constexpr std::array programs{Program{"zenity", forZenity}, Program{"kdialog", forKdialog},
                              Program{"qarma", forZenity}, Program{"yad", forYad}};

bool isSet(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr && *value != '\0';
}

bool hasDisplay() {
  return isSet("WAYLAND_DISPLAY") || isSet("DISPLAY");
}

// The output is the path and one line end. The path may contain line ends itself.
SaveAnswer chosen(std::string output) {
  if (!output.empty() && output.back() == '\n') output.pop_back();
  if (output.empty() || output.front() != '/') return {SaveOutcome::failed, ""};
  return {SaveOutcome::chosen, output};
}

std::optional<SaveAnswer> answerOf(const FinishedProgram& finished) {
  const SaveAnswer cancelled = {SaveOutcome::cancelled, ""};
  if (finished.crashed) return std::nullopt;
  if (!finished.exitCode) return finished.output.empty() ? cancelled : chosen(finished.output);
  if (*finished.exitCode == 0) return chosen(finished.output);
  if (*finished.exitCode == cancelledCode || *finished.exitCode == closedCode) return cancelled;
  return std::nullopt;
}

// The window that the dialog belongs to, for programs that read it from the environment.
Words variablesOf(const SaveQuestion& question) {
  if (question.parent == nullptr) return {};
  return {"WINDOWID=" + windowNumber(question)};
}

}  // namespace

// Without a display some of the programs exit as if the user had cancelled, so none is tried.
std::optional<SaveAnswer> askDialogProgram(const SaveQuestion& question) {
  if (!hasDisplay()) return std::nullopt;
  for (const Program& program : programs) {
    Words words = program.arguments(question);
    words.insert(words.begin(), program.name);
    const auto finished = runProgram(words, variablesOf(question));
    if (!finished) continue;
    if (auto answer = answerOf(*finished)) return answer;
  }
  return std::nullopt;
}

}  // namespace zeph::platform
