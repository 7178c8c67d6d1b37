#include "platform/linux/child_process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <new>
#include <string_view>

namespace zeph::platform {
namespace {

class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() { close(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int number() const { return number_; }
  void close() {
    if (number_ >= 0) ::close(number_);
    number_ = -1;
  }

 private:
  int number_;
};

// The child's three streams. The output is set first: if the host has closed a standard stream, the
// pipe may have its number, and opening that stream would overwrite it.
class Streams {
 public:
  explicit Streams(int output) {
    if (posix_spawn_file_actions_init(&actions_) != 0) throw std::bad_alloc();
    posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions_, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  }
  ~Streams() { posix_spawn_file_actions_destroy(&actions_); }
  Streams(const Streams&) = delete;
  Streams& operator=(const Streams&) = delete;

  const posix_spawn_file_actions_t* get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_{};
};

// The child starts without blocked signals, and with the default action of the two signals that
// hosts often ignore.
class Attributes {
 public:
  Attributes() {
    if (posix_spawnattr_init(&attributes_) != 0) throw std::bad_alloc();
    sigset_t none, usual;
    sigemptyset(&none);
    sigemptyset(&usual);
    sigaddset(&usual, SIGCHLD);
    sigaddset(&usual, SIGPIPE);
    posix_spawnattr_setsigmask(&attributes_, &none);
    posix_spawnattr_setsigdefault(&attributes_, &usual);
    posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }
  ~Attributes() { posix_spawnattr_destroy(&attributes_); }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;

  const posix_spawnattr_t* get() const { return &attributes_; }

 private:
  posix_spawnattr_t attributes_{};
};

// A null-terminated argument list that points into `words`.
std::vector<char*> pointers(const std::vector<std::string>& words) {
  std::vector<char*> list;
  list.reserve(words.size() + 1);
  for (const std::string& word : words) list.push_back(const_cast<char*>(word.c_str()));
  list.push_back(nullptr);
  return list;
}

std::vector<std::string> environmentWith(const std::vector<std::string>& variables) {
  std::vector<std::string> all = variables;
  for (char** at = environ; at != nullptr && *at != nullptr; ++at) {
    const std::string_view entry = *at;
    const std::string_view name = entry.substr(0, entry.find('='));
    const bool replaced =
        std::any_of(variables.begin(), variables.end(), [=](const std::string& variable) {
          return variable.substr(0, variable.find('=')) == name;
        });
    if (!replaced) all.emplace_back(entry);
  }
  return all;
}

std::string readAll(int descriptor) {
  std::string text;
  std::array<char, 4096> buffer;
  for (;;) {
    const ssize_t count = read(descriptor, buffer.data(), buffer.size());
    if (count == 0) return text;
    if (count > 0) text.append(buffer.data(), static_cast<std::size_t>(count));
    if (count < 0 && errno != EINTR) return text;
  }
}

void collect(pid_t child, FinishedProgram& finished) {
  int status = 0;
  pid_t collected;
  do {
    collected = waitpid(child, &status, 0);
  } while (collected < 0 && errno == EINTR);
  if (collected != child) return;
  finished.crashed = WIFSIGNALED(status);
  if (WIFEXITED(status)) finished.exitCode = WEXITSTATUS(status);
}

}  // namespace

std::optional<FinishedProgram> runProgram(const std::vector<std::string>& words,
                                          const std::vector<std::string>& variables) {
  std::array<int, 2> ends;
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return std::nullopt;
  const Descriptor reading(ends[0]);
  Descriptor writing(ends[1]);
  const std::vector<std::string> environment = environmentWith(variables);
  pid_t child = 0;
  const int error =
      posix_spawnp(&child, words.front().c_str(), Streams(writing.number()).get(),
                   Attributes().get(), pointers(words).data(), pointers(environment).data());
  if (error != 0) return std::nullopt;
  writing.close();
  FinishedProgram finished;
  finished.output = readAll(reading.number());
  collect(child, finished);
  return finished;
}

}  // namespace zeph::platform
