#include "platform/whole_file.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <utility>
#include <vector>

namespace zeph::platform {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t bufferBytes = 1 << 16;
constexpr DWORD largestWrite = DWORD{1} << 30;
constexpr DWORD forAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

class File {
 public:
  explicit File(HANDLE handle = INVALID_HANDLE_VALUE) : handle_(handle) {}
  ~File() { close(); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  File(File&& other) noexcept : handle_(std::exchange(other.handle_, INVALID_HANDLE_VALUE)) {}
  File& operator=(File&& other) noexcept {
    close();
    handle_ = std::exchange(other.handle_, INVALID_HANDLE_VALUE);
    return *this;
  }

  void close() {
    if (*this) CloseHandle(std::exchange(handle_, INVALID_HANDLE_VALUE));
  }
  HANDLE get() const { return handle_; }
  explicit operator bool() const { return handle_ != INVALID_HANDLE_VALUE; }

 private:
  HANDLE handle_;
};

int lastError() {
  return static_cast<int>(GetLastError());
}

File openForWriting(const fs::path& path, DWORD whether, DWORD sharing) {
  return File(CreateFileW(path.c_str(), GENERIC_WRITE, sharing, nullptr, whether,
                          FILE_ATTRIBUTE_NORMAL, nullptr));
}

std::wstring temporaryName() {
  static std::atomic<unsigned> count = 0;
  return L".zephane-" + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(count++) +
         L".part";
}

// Where an open file really is, behind links; empty if that is unknown.
fs::path placeOf(const File& file) {
  std::wstring path(GetFinalPathNameByHandleW(file.get(), nullptr, 0, 0), L'\0');
  path.resize(
      GetFinalPathNameByHandleW(file.get(), path.data(), static_cast<DWORD>(path.size()), 0));
  return path;
}

int writeAll(const File& file, std::span<const std::byte> bytes) {
  while (!bytes.empty()) {
    const auto asked = static_cast<DWORD>(std::min<std::size_t>(bytes.size(), largestWrite));
    DWORD taken = 0;
    if (!WriteFile(file.get(), bytes.data(), asked, &taken, nullptr)) return lastError();
    bytes = bytes.subspan(taken);
  }
  return 0;
}

}  // namespace

struct WholeFile::State {
  File file;           // that is written to
  fs::path target;     // empty where it is written to directly
  fs::path temporary;  // empty while there is none
  bool replaces = false;
  std::vector<std::byte> buffer;

  int openExisting(File existing);
  int openTemporary(const fs::path& path);
  void dropTemporary();
  int flushBuffer();
  int nameFile();
};

// If the process is killed, the file stays behind.
int WholeFile::State::openTemporary(const fs::path& path) {
  target = path;
  temporary = path.parent_path() / temporaryName();
  file = openForWriting(temporary, CREATE_NEW, FILE_SHARE_READ | FILE_SHARE_DELETE);
  if (file) return 0;
  const int error = lastError();
  temporary.clear();
  target.clear();
  return error;
}

int WholeFile::State::openExisting(File existing) {
  if (GetFileType(existing.get()) == FILE_TYPE_DISK) {
    const fs::path place = placeOf(existing);
    replaces = true;
    if (!place.empty() && openTemporary(place) == 0) return 0;
    if (!SetEndOfFile(existing.get())) return lastError();
  }
  file = std::move(existing);
  return 0;
}

void WholeFile::State::dropTemporary() {
  file.close();
  if (!temporary.empty()) DeleteFileW(temporary.c_str());
  temporary.clear();
}

int WholeFile::State::flushBuffer() {
  const int error = writeAll(file, buffer);
  buffer.clear();
  return error;
}

// The first keeps the permissions and the owner of the file that is replaced; not every file system
// can do that.
int WholeFile::State::nameFile() {
  file.close();
  if (!replaces || !ReplaceFileW(target.c_str(), temporary.c_str(), nullptr,
                                 REPLACEFILE_IGNORE_MERGE_ERRORS, nullptr, nullptr)) {
    constexpr DWORD atOnce = MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH;
    if (!MoveFileExW(temporary.c_str(), target.c_str(), atOnce)) return lastError();
  }
  temporary.clear();
  return 0;
}

WholeFile::WholeFile() : state_(std::make_unique<State>()) {}

WholeFile::~WholeFile() {
  state_->dropTemporary();
}

int WholeFile::open(const fs::path& path) {
  State& s = *state_;
  if (path.empty()) return ERROR_PATH_NOT_FOUND;
  s.buffer.reserve(bufferBytes);
  File existing = openForWriting(path, OPEN_EXISTING, forAll);
  if (existing) return s.openExisting(std::move(existing));
  if (lastError() != ERROR_FILE_NOT_FOUND) return lastError();
  // A link to a file that does not exist yet.
  if (GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES) {
    s.file = openForWriting(path, CREATE_ALWAYS, forAll);
    return s.file ? 0 : lastError();
  }
  return s.openTemporary(path);
}

int WholeFile::write(std::span<const std::byte> bytes) {
  State& s = *state_;
  if (s.buffer.size() + bytes.size() > bufferBytes) {
    if (const int error = s.flushBuffer()) return error;
  }
  if (bytes.size() > bufferBytes) return writeAll(s.file, bytes);
  s.buffer.insert(s.buffer.end(), bytes.begin(), bytes.end());
  return 0;
}

int WholeFile::commit() {
  State& s = *state_;
  if (const int error = s.flushBuffer()) return error;
  // Devices and pipes have nothing to flush.
  if (!FlushFileBuffers(s.file.get()) && !s.target.empty()) return lastError();
  if (!s.temporary.empty()) {
    if (const int error = s.nameFile()) return error;
  }
  s.file.close();
  return 0;
}

}  // namespace zeph::platform
