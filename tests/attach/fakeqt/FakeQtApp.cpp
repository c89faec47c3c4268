// An application that loads a QtCore4.dll and a QtGui4.dll built by "another
// compiler" (the fakes beside it) and shows a window until it is closed or
// ended: kwscript must refuse it before anything calls into those DLLs.
#include <windows.h>

#include <string>

int main() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring folder(path);
  folder = folder.substr(0, folder.find_last_of(L"\\/") + 1);
  if (!LoadLibraryW((folder + L"QtCore4.dll").c_str()) || !LoadLibraryW((folder + L"QtGui4.dll").c_str())) return 1;
  HWND window = CreateWindowW(L"STATIC", L"not quite Qt", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0, 200, 100, nullptr,
                              nullptr, GetModuleHandleW(nullptr), nullptr);
  MSG message;
  while (window != nullptr && GetMessageW(&message, nullptr, 0, 0) > 0) DispatchMessageW(&message);
  return 0;
}
