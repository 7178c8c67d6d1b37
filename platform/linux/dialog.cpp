#include "platform/dialog.h"

#include <filesystem>

#include "platform/linux/dialog_backends.h"

namespace zeph::platform {
namespace {

std::optional<SaveAnswer> ask(const SaveQuestion& question) {
#ifdef ZEPHANE_PORTAL
  if (auto answer = askPortal(question)) return answer;
#endif
  return askDialogProgram(question);
}

bool isThere(const std::filesystem::path& file) {
  std::error_code error;
  return std::filesystem::exists(file, error);
}

}  // namespace

SaveAnswer askSavePath(const SaveQuestion& question) {
  SaveQuestion asked = question;
  for (;;) {
    SaveAnswer answer = ask(asked).value_or(SaveAnswer());
    if (answer.outcome != SaveOutcome::chosen) return answer;
    if (std::filesystem::path(answer.path).has_extension()) return answer;
    const std::string path = answer.path + "." + question.suffix;
    if (!isThere(path)) return {SaveOutcome::chosen, path};
    // The dialog has checked only the name without the suffix. Ask again with the whole path, once:
    // the same answer to that counts as cancelled.
    if (asked.name == path) return {SaveOutcome::cancelled, ""};
    asked.name = path;
  }
}

}  // namespace zeph::platform
