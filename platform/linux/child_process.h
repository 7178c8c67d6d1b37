// Runs a program to its end and collects its output.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace zeph::platform {

struct FinishedProgram {
  std::string output;           // all of the standard output
  std::optional<int> exitCode;  // empty if the host has collected it
  bool crashed = false;         // ended by a signal
};

// Runs the first word, searched on PATH, with the other words as its arguments, without a shell.
// Its standard input is empty, and its standard error is discarded. `variables` are NAME=VALUE and
// replace those of this process. Empty if the program cannot be started.
//
// The host's signal handling is not changed. There is no exit code if the host ignores SIGCHLD or
// collects every child itself.
std::optional<FinishedProgram> runProgram(const std::vector<std::string>& words,
                                          const std::vector<std::string>& variables = {});

}  // namespace zeph::platform
