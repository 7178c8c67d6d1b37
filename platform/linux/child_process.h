// A program that is run to its end for what it writes.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace zeph::platform {

struct FinishedProgram {
  std::string output;           // all of the standard output
  std::optional<int> exitCode;  // nothing where somebody else has collected it
  bool crashed = false;         // ended by a signal
};

// Runs the first word, looked for on PATH, with the others as its arguments; no shell takes part.
// Its standard input is empty, and its complaints go nowhere. `variables`, NAME=VALUE, replace
// those of this process. Nothing where it cannot be started.
//
// The host's signals stay as they are. A host that ignores SIGCHLD, or collects every child
// itself, takes the exit code away.
std::optional<FinishedProgram> runProgram(const std::vector<std::string>& words,
                                          const std::vector<std::string>& variables = {});

}  // namespace zeph::platform
