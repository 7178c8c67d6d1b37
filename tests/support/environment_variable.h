// A variable of the process's environment, which gets its value back at the end.
#pragma once

#ifdef _WIN32
#include <windows.h>
#endif

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

#include "platform/system.h"

namespace zeph::test {

class EnvironmentVariable {
 public:
  explicit EnvironmentVariable(std::string name)
      : name_(std::move(name)), before_(platform::environmentVariable(name_.c_str())) {}
  ~EnvironmentVariable() { before_ ? set(*before_) : remove(); }
  EnvironmentVariable(const EnvironmentVariable&) = delete;
  EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

#ifdef _WIN32
  void set(const std::string& value) const {
    SetEnvironmentVariableA(name_.c_str(), value.c_str());
  }
  void remove() const {
    SetEnvironmentVariableA(name_.c_str(), nullptr);
  }
#else
  void set(const std::string& value) const {
    setenv(name_.c_str(), value.c_str(), 1);
  }
  void remove() const {
    unsetenv(name_.c_str());
  }
#endif

 private:
  std::string name_;
  std::optional<std::string> before_;
};

}  // namespace zeph::test
