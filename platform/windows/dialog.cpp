#include "platform/dialog.h"

#include <windows.h>
// After windows.h.
#include <commdlg.h>

#include <vector>

#include "platform/windows/texts.h"

namespace zeph::platform {
namespace {

constexpr DWORD longestPath = 32768;  // in characters

// "PNG image" and "*.png", each with its end, and the end of the list.
std::wstring filterOf(const SaveQuestion& question) {
  const std::wstring end(1, L'\0');
  return wideText(question.filterName) + end + L"*." + wideText(question.suffix) + end;
}

}  // namespace

// The dialog has a title of its own, in the user's language.
SaveAnswer askSavePath(const SaveQuestion& question) {
  const std::wstring filter = filterOf(question), suffix = wideText(question.suffix);
  std::vector<wchar_t> path(longestPath, L'\0');
  const std::wstring name = wideText(question.name).substr(0, longestPath - 1);
  name.copy(path.data(), name.size());

  OPENFILENAMEW asked = {};
  asked.lStructSize = sizeof(asked);
  if (question.parent != nullptr)
    asked.hwndOwner = GetAncestor(static_cast<HWND>(question.parent), GA_ROOT);
  asked.lpstrFilter = filter.c_str();
  asked.lpstrFile = path.data();
  asked.nMaxFile = longestPath;
  asked.lpstrDefExt = suffix.c_str();
  asked.Flags = OFN_OVERWRITEPROMPT | OFN_NOCHANGEDIR | OFN_PATHMUSTEXIST;
  if (GetSaveFileNameW(&asked)) return {SaveOutcome::chosen, utf8Text(path.data())};
  const bool isCancelled = CommDlgExtendedError() == 0;
  return {isCancelled ? SaveOutcome::cancelled : SaveOutcome::failed, ""};
}

}  // namespace zeph::platform
