// The desktop's dialog for saving a file.
#pragma once

#include <string>

namespace zeph::platform {

// Texts are UTF-8.
struct SaveQuestion {
  std::string title;
  std::string name;        // the proposed file name, or its whole path
  std::string filterName;  // what files of the suffix are called
  std::string suffix;      // without its dot; appended to a name without any suffix
  void* parent = nullptr;  // the window that the question belongs to, or null
};

enum class SaveOutcome { chosen, cancelled, failed };

struct SaveAnswer {
  SaveOutcome outcome = SaveOutcome::failed;
  std::string path;
};

// Opens the dialog and waits for the answer. An existing file is chosen only after the user has
// agreed to replace it.
SaveAnswer askSavePath(const SaveQuestion& question);

}  // namespace zeph::platform
