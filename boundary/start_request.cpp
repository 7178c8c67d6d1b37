#include "boundary/start_request.h"

#include <stdexcept>

#include "solver/state_file.h"

namespace zeph {

std::string initialPath(const Json& request) {
  return readPath(request, "initial").value_or("");
}

std::string statePath(const Json& request) {
  return readPath(request, "state").value_or("");
}

void checkStart(const Json& request) {
  if (!statePath(request).empty() && !initialPath(request).empty())
    throw std::invalid_argument("Initial file and state exclude each other.");
}

std::optional<StateRecord> readState(const Json& request) {
  const std::string path = statePath(request);
  if (path.empty()) return std::nullopt;
  checkStart(request);
  return readStateFile(path);
}

}  // namespace zeph
