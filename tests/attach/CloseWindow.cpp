// Asks the visible top-level windows of a process that bear a title to
// close (WM_CLOSE), as a user's click on their close button would: a way to
// answer an application's modal dialog from outside it.
//   kwclosewindow.exe PID TITLE
// Exit status 0 when a window was asked, 1 when none bears the title.
#include <windows.h>

#include <cwchar>
#include <cstdlib>

namespace {

struct Search {
  DWORD pid;
  const wchar_t* title;
  int closed;
};

BOOL CALLBACK CloseIfTitled(HWND window, LPARAM parameter) {
  auto* search = reinterpret_cast<Search*>(parameter);
  DWORD owner = 0;
  GetWindowThreadProcessId(window, &owner);
  wchar_t title[512] = {};
  GetWindowTextW(window, title, 512);
  if (owner == search->pid && IsWindowVisible(window) && std::wcscmp(title, search->title) == 0) {
    PostMessageW(window, WM_CLOSE, 0, 0);
    ++search->closed;
  }
  return TRUE;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  if (argc != 3) return 2;
  Search search{static_cast<DWORD>(std::wcstoul(argv[1], nullptr, 10)), argv[2], 0};
  EnumWindows(&CloseIfTitled, reinterpret_cast<LPARAM>(&search));
  return search.closed > 0 ? 0 : 1;
}
