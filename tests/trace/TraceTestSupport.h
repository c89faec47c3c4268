// Helpers shared by the trace log tests: registry configuration, scratch
// folders, reading a trace file back and capturing debugger output.
#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

namespace tracetest {

constexpr const wchar_t kQuillmoorKey[] = L"SOFTWARE\\Quillmoor";
constexpr const wchar_t kFolderValue[] = L"DebugTraceFolder";

// Sets "DebugTraceFolder" under root\SOFTWARE\Quillmoor.
void SetTraceFolder(HKEY root, const std::wstring& folder);
// Removes the value from every place the library reads it.
void ClearTraceFolders();

std::wstring TempFolder();                        // GetTempPathW, with its trailing backslash
std::wstring ExeFolder();                         // folder of this test program, no trailing backslash
std::wstring ExePath();
std::wstring ModulePath(HMODULE module);
std::wstring FileStem(const std::wstring& path);  // "C:\a\my.tool.exe" -> "my.tool"

// "<exe>_<pid>_<library stem>_<16 upper-case hex digits of the load address>"
std::wstring ExpectedTraceName(HMODULE library);

bool FileExists(const std::wstring& path);
bool FolderExists(const std::wstring& path);
std::string ReadBytes(const std::wstring& path);
void WriteBytes(const std::wstring& path, const std::string& bytes);
void DeleteTree(const std::wstring& path);
std::string Utf8(const std::wstring& text);

// A fresh folder under the temp folder, removed with its contents at the end.
class ScratchFolder {
public:
    ScratchFolder();
    ~ScratchFolder();
    const std::wstring& Path() const { return path_; }
    std::wstring Sub(const std::wstring& name) const { return path_ + L"\\" + name; }

private:
    std::wstring path_;
};

// Local time as milliseconds on one scale, for comparing time stamps.
long long LocalMillis(const SYSTEMTIME& time);
long long LocalNowMillis();

// One line of a trace file, split at its fixed columns.
struct TraceLine {
    std::string raw;         // without CR LF
    SYSTEMTIME time{};       // the date and time fields
    std::string threadField; // the thread id column as written ("%5u")
    std::string message;
};

// Splits the bytes after the three-line separator into lines. Every line
// must end with CR LF and contain no other CR or LF; the prefix must have the
// shape "YYYY-MM-DD hh:mm:ss.mmm <tid>   ". Failures are reported through
// gtest and leave `ok` false.
std::vector<TraceLine> ParseLines(const std::string& bytes, bool& ok);

// The message column of each line.
std::vector<std::string> Messages(const std::vector<TraceLine>& lines);

// Collects what OutputDebugString sends while it is alive (through a
// vectored exception handler that sees the debug-print exception first).
class DebugOutputCapture {
public:
    // With a file path, the size of that file is noted at every text.
    explicit DebugOutputCapture(const std::wstring& watchedFile = L"");
    ~DebugOutputCapture();
    // The captured texts, in order.
    std::vector<std::string> Texts() const;
    // The watched file's size when each text arrived (-1: no such file).
    std::vector<long long> FileSizes() const;

private:
    PVOID handler_;
};

// Loads a DLL and frees it at the end of the scope unless freed earlier.
class LoadedLibrary {
public:
    explicit LoadedLibrary(const std::wstring& path) : module_(LoadLibraryW(path.c_str())) {}
    ~LoadedLibrary() { Free(); }
    HMODULE Get() const { return module_; }
    void Free()
    {
        if (module_) {
            FreeLibrary(module_);
            module_ = nullptr;
        }
    }

private:
    HMODULE module_;
};

}  // namespace tracetest
