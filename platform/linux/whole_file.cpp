#include "platform/whole_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace zeph::platform {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t bufferBytes = 1 << 16;

class Descriptor {
 public:
  explicit Descriptor(int value = -1) : value_(value) {}
  ~Descriptor() { reset(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  Descriptor(Descriptor&& other) noexcept : value_(std::exchange(other.value_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    reset(std::exchange(other.value_, -1));
    return *this;
  }

  void reset(int value = -1) {
    if (value_ >= 0) ::close(value_);
    value_ = value;
  }
  int get() const { return value_; }
  explicit operator bool() const { return value_ >= 0; }

 private:
  int value_;
};

// Calls `call` again as long as a signal interrupts it.
template <class Call>
auto uninterrupted(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

std::string temporaryName() {
  static std::atomic<unsigned> count = 0;
  return ".zephane-" + std::to_string(::getpid()) + "-" + std::to_string(count++) + ".part";
}

int writeAll(int file, std::span<const std::byte> bytes) {
  while (!bytes.empty()) {
    const ssize_t taken = uninterrupted([&] { return ::write(file, bytes.data(), bytes.size()); });
    if (taken < 0) return errno;
    bytes = bytes.subspan(static_cast<std::size_t>(taken));
  }
  return 0;
}

}  // namespace

struct WholeFile::State {
  Descriptor folder;      // of the target
  Descriptor file;        // that is written to
  std::string target;     // its name in the folder; empty where it is written to directly
  std::string temporary;  // the name of the file in the folder; empty while it has none
  std::vector<std::byte> buffer;

  int openExisting(Descriptor existing, const fs::path& path);
  int openTemporary(const fs::path& path);
  bool keepOwnerAndMode(const struct stat& existing) const;
  void dropTemporary();
  int flushBuffer();
  int nameFile();
};

// A file without a name vanishes with the process; not every file system has such.
int WholeFile::State::openTemporary(const fs::path& path) {
  const fs::path parent = path.has_parent_path() ? path.parent_path() : fs::path(".");
  folder.reset(::open(parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!folder) return errno;
  target = path.filename().string();
  const bool canBeNamedLater = ::access("/proc/self/fd", X_OK) == 0;
  if (canBeNamedLater)
    file.reset(::openat(folder.get(), ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666));
  if (file) return 0;
  temporary = temporaryName();
  file.reset(
      ::openat(folder.get(), temporary.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0666));
  if (file) return 0;
  const int error = errno;
  temporary.clear();
  return error;
}

bool WholeFile::State::keepOwnerAndMode(const struct stat& existing) const {
  struct stat own = {};
  if (::fstat(file.get(), &own) != 0) return false;
  const bool isOwned = own.st_uid == existing.st_uid && own.st_gid == existing.st_gid;
  if (!isOwned && ::fchown(file.get(), existing.st_uid, existing.st_gid) != 0) return false;
  return ::fchmod(file.get(), existing.st_mode & 07777) == 0;
}

int WholeFile::State::openExisting(Descriptor existing, const fs::path& path) {
  struct stat found = {};
  if (::fstat(existing.get(), &found) != 0) return errno;
  if (S_ISREG(found.st_mode)) {
    std::error_code error;
    // Where the path is a link, the file that it leads to is replaced and not the link.
    const fs::path real = fs::canonical(path, error);
    if (!error && openTemporary(real) == 0 && keepOwnerAndMode(found)) return 0;
    dropTemporary();
    target.clear();
    if (::ftruncate(existing.get(), 0) != 0) return errno;
  }
  file = std::move(existing);
  const int flags = ::fcntl(file.get(), F_GETFL);
  return ::fcntl(file.get(), F_SETFL, flags & ~O_NONBLOCK) == 0 ? 0 : errno;
}

void WholeFile::State::dropTemporary() {
  if (!temporary.empty()) ::unlinkat(folder.get(), temporary.c_str(), 0);
  temporary.clear();
  file.reset();
}

int WholeFile::State::flushBuffer() {
  const int error = writeAll(file.get(), buffer);
  buffer.clear();
  return error;
}

int WholeFile::State::nameFile() {
  if (temporary.empty()) {
    const std::string nameless = "/proc/self/fd/" + std::to_string(file.get());
    const auto link = [&](const std::string& name) {
      return ::linkat(AT_FDCWD, nameless.c_str(), folder.get(), name.c_str(), AT_SYMLINK_FOLLOW);
    };
    if (link(target) == 0) return 0;
    if (errno != EEXIST) return errno;
    const std::string name = temporaryName();
    if (link(name) != 0) return errno;
    temporary = name;
  }
  if (::renameat(folder.get(), temporary.c_str(), folder.get(), target.c_str()) != 0) return errno;
  temporary.clear();
  return 0;
}

WholeFile::WholeFile() : state_(std::make_unique<State>()) {}

WholeFile::~WholeFile() {
  state_->dropTemporary();
}

// Opening without waiting refuses a pipe that nobody reads.
int WholeFile::open(const fs::path& path) {
  State& s = *state_;
  s.buffer.reserve(bufferBytes);
  Descriptor existing(uninterrupted(
      [&] { return ::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); }));
  if (existing) return s.openExisting(std::move(existing), path);
  if (errno != ENOENT || path.empty()) return errno;
  struct stat link = {};
  if (::lstat(path.c_str(), &link) != 0) return s.openTemporary(path);
  // A link to a file that does not exist yet.
  s.file.reset(::open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0666));
  return s.file ? 0 : errno;
}

int WholeFile::write(std::span<const std::byte> bytes) {
  State& s = *state_;
  if (s.buffer.size() + bytes.size() > bufferBytes) {
    if (const int error = s.flushBuffer()) return error;
  }
  if (bytes.size() > bufferBytes) return writeAll(s.file.get(), bytes);
  s.buffer.insert(s.buffer.end(), bytes.begin(), bytes.end());
  return 0;
}

int WholeFile::commit() {
  State& s = *state_;
  if (const int error = s.flushBuffer()) return error;
  // Devices and pipes have nothing to flush.
  if (::fsync(s.file.get()) != 0 && errno != EINVAL && errno != EROFS && errno != ENOTSUP)
    return errno;
  if (!s.target.empty()) {
    if (const int error = s.nameFile()) return error;
  }
  s.file.reset();
  return 0;
}

}  // namespace zeph::platform
