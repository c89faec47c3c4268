// kwQtWrappers.dll loaded and unloaded again and again in a Qt application,
// as an attach that loads the library per script does: no cycle may leave a
// handle of the process open.
#include <QtCore/QSize>

#include <winternl.h>

#include <cstdint>
#include <map>
#include <sstream>
#include <string>

#include "QtHost.h"

namespace qttest {
namespace {

// The open handles of the process, by value, with their object type names.
// Wine's GetProcessHandleCount answers 0, so each possible handle value is
// asked for its flags.
std::map<std::uintptr_t, std::wstring> OpenHandles() {
  using QueryObject = NTSTATUS(NTAPI*)(HANDLE, ULONG, PVOID, ULONG, PULONG);
  static const auto query =
      reinterpret_cast<QueryObject>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQueryObject")));
  std::map<std::uintptr_t, std::wstring> open;
  for (std::uintptr_t value = 4; value < 0x10000; value += 4) {
    DWORD flags = 0;
    const HANDLE handle = reinterpret_cast<HANDLE>(value);
    if (!GetHandleInformation(handle, &flags)) continue;
    alignas(8) unsigned char buffer[1024] = {};
    const auto* type = reinterpret_cast<const UNICODE_STRING*>(buffer);  // OBJECT_TYPE_INFORMATION starts with it
    const bool named = query != nullptr && query(handle, 2 /* ObjectTypeInformation */, buffer, sizeof buffer,
                                                 nullptr) >= 0 && type->Buffer != nullptr;
    open[value] = named ? std::wstring(type->Buffer, type->Length / sizeof(wchar_t)) : L"?";
  }
  return open;
}

std::string Added(const std::map<std::uintptr_t, std::wstring>& before,
                  const std::map<std::uintptr_t, std::wstring>& after) {
  std::ostringstream out;
  for (const auto& [value, type] : after)
    if (before.count(value) == 0) out << " 0x" << std::hex << value << " (" << Narrow(type) << ")";
  return out.str();
}

// One load of the library in which a host wraps a QSize, releases it and
// unloads the library again.
void LoadWrapAndUnload() {
  kwhost::ManagerHost host(L"kwQtWrappers.dll");
  ASSERT_TRUE(host.ready());
  QSize size(3, 4);
  HRESULT hr = E_FAIL;
  IDispatch* object = host.Wrap(L"QSize", &size, &hr);
  ASSERT_EQ(S_OK, hr);
  DISPID id = DISPID_UNKNOWN;
  EXPECT_EQ(S_OK, IdOf(object, L"QSize_width", &id));
  EXPECT_EQ(0u, object->Release());
  host.Unload();
}

TEST(QtUnloadTest, EachLoadAndUnloadLeavesNoHandleOpen) {
  ASSERT_EQ(nullptr, GetModuleHandleW(L"kwQtWrappers.dll")) << "the library is loaded already";
  // The first cycle may leave what Qt and the system keep once per process.
  LoadWrapAndUnload();
  auto before = OpenHandles();
  for (int cycle = 2; cycle <= 3; ++cycle) {
    LoadWrapAndUnload();
    EXPECT_EQ(nullptr, GetModuleHandleW(L"kwQtWrappers.dll")) << "cycle " << cycle << " left the library loaded";
    const auto after = OpenHandles();
    EXPECT_EQ(before.size(), after.size()) << "cycle " << cycle << " left handles open:" << Added(before, after);
    before = after;
  }
}

}  // namespace
}  // namespace qttest
