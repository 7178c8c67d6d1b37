// A host for tests on Windows: a program that loads the library and has windows, and does what it
// is asked to. A line of its input is a request, [OPERATION, ARGUMENT...] in JSON; a line of its
// output is the answer. Everything runs on its main thread, which handles messages in between.
//
//   zephane_windows_host LIBRARY
#include <windows.h>
// After windows.h.
#include <objbase.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Json = nlohmann::json;

constexpr const wchar_t* className = L"Host";
constexpr COLORREF background = RGB(0x3A, 0x7F, 0x5C);
constexpr UINT requestMessage = WM_APP;

HMODULE library = nullptr;
std::thread dialogAnswer;
Json dialogSeen;                             // by that thread
std::map<HWND, std::vector<Json>> received;  // messages of keys and of the mouse

template <class Result, class... Arguments>
Result call(const char* name, Arguments... arguments) {
  using Function = Result (*)(Arguments...);
  const auto function =
      reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
  return function(arguments...);
}

Json taken(char* text) {
  Json copy = text == nullptr ? Json(nullptr) : Json(std::string(text));
  call<void>("zp_string_free", text);
  return copy;
}

void* pointer(const Json& value) {
  return value.is_null() ? nullptr : reinterpret_cast<void*>(value.get<std::uintptr_t>());
}

HWND window(const Json& value) {
  return static_cast<HWND>(pointer(value));
}

Json number(const void* handle) {
  return reinterpret_cast<std::uintptr_t>(handle);
}

Json makeWindow(int width, int height) {
  HWND made = CreateWindowExW(0, className, L"", WS_POPUP | WS_CLIPCHILDREN, 0, 0, width, height,
                              nullptr, nullptr, GetModuleHandleW(nullptr), nullptr);
  return number(made);
}

Json placeOf(HWND child) {
  RECT rect = {};
  GetWindowRect(child, &rect);
  MapWindowPoints(nullptr, GetParent(child), reinterpret_cast<POINT*>(&rect), 2);
  return {rect.left, rect.top, rect.right - rect.left, rect.bottom - rect.top};
}

Json childrenOf(HWND parent) {
  Json children = Json::array();
  for (HWND child = GetWindow(parent, GW_CHILD); child != nullptr;
       child = GetWindow(child, GW_HWNDNEXT))
    children.push_back(placeOf(child));
  return children;
}

Json classOf(HWND one) {
  char name[100] = {};
  GetClassNameA(one, name, sizeof(name));
  return {{"class", name},
          {"style", GetWindowLongW(one, GWL_STYLE)},
          {"extended_style", GetWindowLongW(one, GWL_EXSTYLE)}};
}

std::string textOf(HWND one) {
  wchar_t wide[1000] = {};
  SendMessageW(one, WM_GETTEXT, std::size(wide), reinterpret_cast<LPARAM>(wide));
  char text[3000] = {};
  WideCharToMultiByte(CP_UTF8, 0, wide, -1, text, sizeof(text), nullptr, nullptr);
  return text;
}

std::wstring wideOf(const std::string& text) {
  wchar_t wide[1000] = {};
  MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, wide, static_cast<int>(std::size(wide)));
  return wide;
}

BOOL CALLBACK isDialog(HWND one, LPARAM found) {
  DWORD process = 0;
  GetWindowThreadProcessId(one, &process);
  wchar_t name[100] = {};
  GetClassNameW(one, name, static_cast<int>(std::size(name)));
  if (process != GetCurrentProcessId() || std::wstring(name) != L"#32770" || !IsWindowVisible(one))
    return TRUE;
  *reinterpret_cast<HWND*>(found) = one;
  return FALSE;
}

HWND waitForDialog() {
  HWND found = nullptr;
  for (int look = 0; look < 3000 && found == nullptr; ++look) {
    Sleep(10);
    EnumWindows(isDialog, reinterpret_cast<LPARAM>(&found));
  }
  return found;
}

BOOL CALLBACK isEdit(HWND one, LPARAM found) {
  wchar_t name[100] = {};
  GetClassNameW(one, name, static_cast<int>(std::size(name)));
  if (std::wstring(name) != L"Edit") return TRUE;
  *reinterpret_cast<HWND*>(found) = one;
  return FALSE;
}

// Types a path, or nothing, into the dialog that comes, and presses OK or Cancel.
void answerDialog(const Json& path) {
  HWND dialog = waitForDialog();
  HWND edit = nullptr;
  EnumChildWindows(dialog, isEdit, reinterpret_cast<LPARAM>(&edit));
  dialogSeen = {{"owner", number(GetWindow(dialog, GW_OWNER))}, {"name", textOf(edit)}};
  if (!path.is_null())
    SendMessageW(edit, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(wideOf(path).c_str()));
  PostMessageW(dialog, WM_COMMAND, path.is_null() ? IDCANCEL : IDOK, 0);
}

Json seenDialog() {
  dialogAnswer.join();
  return std::exchange(dialogSeen, nullptr);
}

// Whoever does not answer within two seconds hangs.
Json sendMessage(HWND to, const Json& request) {
  DWORD_PTR result = 0;
  const auto sent = SendMessageTimeoutW(to, request[2], request[3].get<WPARAM>(),
                                        request[4].get<LPARAM>(), SMTO_NORMAL, 2000, &result);
  return sent == 0 ? Json(nullptr) : Json(result);
}

Json operateLibrary(const std::string& op, const Json& request) {
  if (op == "zp_initialize") return taken(call<char*>("zp_initialize"));
  if (op == "zp_ui_create") return number(call<void*>("zp_ui_create"));
  if (op == "zp_ui_destroy") {
    call<void>("zp_ui_destroy", pointer(request[1]));
    return nullptr;
  }
  if (op == "zp_ui_attach")
    return taken(call<char*>("zp_ui_attach", pointer(request[1]), pointer(request[2])));
  if (op == "zp_engine_create") {
    char* error = nullptr;
    void* made = call<void*>("zp_engine_create", request[1].get<std::string>().c_str(), &error);
    return made != nullptr ? number(made) : taken(error);
  }
  if (op == "zp_engine_destroy") {
    call<void>("zp_engine_destroy", pointer(request[1]));
    return nullptr;
  }
  // zp_engine_call, zp_ui_call
  return taken(call<char*>(op.c_str(), pointer(request[1]), request[2].get<std::string>().c_str()));
}

Json operateWindow(const std::string& op, const Json& request) {
  const bool hasWindow = request.size() > 1 && request[1].is_number();
  HWND one = hasWindow ? window(request[1]) : nullptr;
  if (op == "window") return makeWindow(request[1], request[2]);
  if (op == "show") return ShowWindow(one, request[2].get<int>());
  if (op == "resize")
    return SetWindowPos(one, nullptr, 0, 0, request[2], request[3], SWP_NOMOVE | SWP_NOZORDER);
  if (op == "raise") return SetWindowPos(one, HWND_TOP, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE);
  if (op == "reparent") {
    SetWindowLongW(one, GWL_STYLE, WS_CHILD | WS_CLIPCHILDREN);
    SetParent(one, window(request[2]));
    return SetWindowPos(one, nullptr, request[3], request[4], 0, 0, SWP_NOSIZE | SWP_NOZORDER);
  }
  if (op == "destroy") return DestroyWindow(one);
  if (op == "exists") return IsWindow(one) != 0;
  if (op == "children") return childrenOf(one);
  if (op == "child") return number(GetWindow(one, GW_CHILD));
  if (op == "class") return classOf(one);
  if (op == "focus") return number(GetFocus());
  if (op == "set_focus") return number(SetFocus(one));
  if (op == "send") return sendMessage(one, request);
  if (op == "answer_dialog") {
    dialogAnswer = std::thread(answerDialog, request[1]);
    return nullptr;
  }
  if (op == "dialog") return seenDialog();
  if (op == "enter_apartment") return CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  if (op == "leave_apartment") {
    CoUninitialize();
    return nullptr;
  }
  if (op == "handles") {
    DWORD handles = 0;
    GetProcessHandleCount(GetCurrentProcess(), &handles);
    return handles;
  }
  if (op == "received") return std::exchange(received[one], {});
  return "unknown operation";
}

Json operate(const Json& request) {
  const std::string op = request[0];
  return op.starts_with("zp_") ? operateLibrary(op, request) : operateWindow(op, request);
}

LRESULT CALLBACK handle(HWND one, UINT message, WPARAM wParam, LPARAM lParam) {
  const bool isKey = message == WM_KEYDOWN || message == WM_KEYUP || message == WM_CHAR;
  if (isKey || message == WM_RBUTTONUP) {
    received[one].push_back({message, wParam, lParam});
    return isKey ? 77 : 0;
  }
  return DefWindowProcW(one, message, wParam, lParam);
}

void readRequests(DWORD mainThread) {
  for (std::string line; std::getline(std::cin, line);)
    PostThreadMessageW(mainThread, requestMessage, 0,
                       reinterpret_cast<LPARAM>(new std::string(line)));
  PostThreadMessageW(mainThread, WM_QUIT, 0, 0);
}

void answer(std::string* line) {
  std::cout << operate(Json::parse(*line)).dump() << std::endl;
  delete line;
}

}  // namespace

int wmain(int count, wchar_t** words) {
  SetProcessDpiAwarenessContext(DPI_AWARENESS_CONTEXT_PER_MONITOR_AWARE_V2);
  library = count == 2 ? LoadLibraryW(words[1]) : nullptr;
  if (library == nullptr) return 2;
  WNDCLASSW own = {};
  own.lpfnWndProc = handle;
  own.hInstance = GetModuleHandleW(nullptr);
  own.hbrBackground = CreateSolidBrush(background);
  own.lpszClassName = className;
  RegisterClassW(&own);
  MSG message = {};
  PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE);  // makes the queue
  std::thread(readRequests, GetCurrentThreadId()).detach();
  while (GetMessageW(&message, nullptr, 0, 0) > 0) {
    if (message.hwnd == nullptr && message.message == requestMessage) {
      answer(reinterpret_cast<std::string*>(message.lParam));
    } else {
      TranslateMessage(&message);
      DispatchMessageW(&message);
    }
  }
  return 0;
}
