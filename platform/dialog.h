// The desktop's own question for a path.
#pragma once

#include <string>

namespace zeph::platform {

// Texts are UTF-8.
struct SaveQuestion {
  std::string title;
  std::string name;        // the file's name to begin with, or its whole path
  std::string filterName;  // what files of the suffix are called
  std::string suffix;      // without its point; a name without any suffix gets it
  void* parent = nullptr;  // the window that the question belongs to, or null
};

enum class SaveOutcome { chosen, cancelled, failed };

struct SaveAnswer {
  SaveOutcome outcome = SaveOutcome::failed;
  std::string path;
};

// Asks and waits for the answer. An existing file is only chosen after the user has agreed to
// replace it.
SaveAnswer askSavePath(const SaveQuestion& question);

}  // namespace zeph::platform
