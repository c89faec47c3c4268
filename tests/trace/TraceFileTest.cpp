// The trace file of kwQtWrappers.dll, read back byte for byte after the
// library was loaded and unloaded the way a host does it.
#include "TraceTestSupport.h"

#include <cstdio>
#include <string>
#include <vector>

using namespace tracetest;

namespace {

const char kSeparator[] = "\r\n\r\n\r\n";

std::wstring LibraryPath() { return ExeFolder() + L"\\kwQtWrappers.dll"; }

std::string ThreadField(DWORD threadId)
{
    char field[16];
    snprintf(field, sizeof(field), "%5u", static_cast<unsigned>(threadId));
    return field;
}

// The header texts the library writes for itself, given its load address.
std::vector<std::string> ExpectedHeader(HMODULE library)
{
    DWORD session = 0xFFFFFFFFu;
    if (!ProcessIdToSessionId(GetCurrentProcessId(), &session))
        session = 0xFFFFFFFFu;
    wchar_t host[16] = {};
    DWORD hostChars = 16;
    if (!GetComputerNameW(host, &hostChars))
        host[0] = L'\0';
    OSVERSIONINFOW version = {};
    version.dwOSVersionInfoSize = sizeof(version);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    GetVersionExW(&version);
#pragma GCC diagnostic pop
    char os[400];
    snprintf(os, sizeof(os), "    OS:       %lu.%lu.%lu.%lu %s", version.dwMajorVersion, version.dwMinorVersion,
             version.dwBuildNumber, version.dwPlatformId, Utf8(version.szCSDVersion).c_str());

    return {
        "The beginning of the trace file.",
        "Process information:",
        "    Name:     " + Utf8(ExpectedTraceName(library)),
        "    PID:      " + std::to_string(GetCurrentProcessId()),
        "    Priority: " + std::to_string(GetPriorityClass(GetCurrentProcess())),
        "    Session:  " + std::to_string(session),
        "    Host:     " + Utf8(host),
        "    CmdLine:  " + Utf8(GetCommandLineW()),
        os,
        "Module information:",
        "    Path:     " + Utf8(ModulePath(library)),
    };
}

class TraceFileTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(FileExists(LibraryPath())) << "kwQtWrappers.dll is expected beside the test program";
        ClearTraceFolders();
    }
    void TearDown() override { ClearTraceFolders(); }
};

// Loads and unloads the library once; returns the trace file name it used.
std::wstring LoadAndUnload(long long* loadedAt = nullptr, long long* unloadedAt = nullptr)
{
    const long long before = LocalNowMillis();
    HMODULE library = LoadLibraryW(LibraryPath().c_str());
    EXPECT_NE(nullptr, library);
    if (!library)
        return L"";
    const std::wstring name = ExpectedTraceName(library) + L".log";
    FreeLibrary(library);
    if (loadedAt)
        *loadedAt = before;
    if (unloadedAt)
        *unloadedAt = LocalNowMillis();
    return name;
}

TEST_F(TraceFileTest, UserFolderGetsHeaderAndClosingLineInTraceFormat)
{
    ScratchFolder scratch;
    const std::wstring folder = scratch.Sub(L"trace");  // not there yet: created by the library
    SetTraceFolder(HKEY_CURRENT_USER, folder);

    const long long before = LocalNowMillis();
    HMODULE library = LoadLibraryW(LibraryPath().c_str());
    ASSERT_NE(nullptr, library);
    const std::wstring file = folder + L"\\" + ExpectedTraceName(library) + L".log";
    const std::vector<std::string> header = ExpectedHeader(library);

    // While loaded: separator and header, flushed line by line.
    ASSERT_TRUE(FolderExists(folder));
    ASSERT_TRUE(FileExists(file)) << "no trace file named " << Utf8(file);
    const std::string whileLoaded = ReadBytes(file);
    ASSERT_EQ(0u, whileLoaded.compare(0, 6, kSeparator)) << whileLoaded;
    bool ok = false;
    std::vector<TraceLine> lines = ParseLines(whileLoaded.substr(6), ok);
    ASSERT_TRUE(ok);
    EXPECT_EQ(header, Messages(lines));

    FreeLibrary(library);
    const long long after = LocalNowMillis();

    const std::string bytes = ReadBytes(file);
    ASSERT_EQ(0u, bytes.compare(0, whileLoaded.size(), whileLoaded)) << "unloading rewrote earlier lines";
    lines = ParseLines(bytes.substr(6), ok);
    ASSERT_TRUE(ok);
    std::vector<std::string> expected = header;
    expected.push_back("The end of the trace file.");
    EXPECT_EQ(expected, Messages(lines));

    // The same thread loaded and unloaded the library: every line names it.
    for (const TraceLine& line : lines) {
        EXPECT_EQ(ThreadField(GetCurrentThreadId()), line.threadField) << line.raw;
        const long long stamp = LocalMillis(line.time);
        EXPECT_GE(stamp, before) << line.raw;
        EXPECT_LE(stamp, after) << line.raw;
    }
}

TEST_F(TraceFileTest, FileNameCarriesSixteenHexDigitsOfTheLoadAddress)
{
    ScratchFolder scratch;
    SetTraceFolder(HKEY_CURRENT_USER, scratch.Path());
    const std::wstring name = LoadAndUnload();
    ASSERT_FALSE(name.empty());

    WIN32_FIND_DATAW found;
    HANDLE search = FindFirstFileW((scratch.Path() + L"\\*.log").c_str(), &found);
    ASSERT_NE(INVALID_HANDLE_VALUE, search);
    std::vector<std::wstring> files;
    do
        files.push_back(found.cFileName);
    while (FindNextFileW(search, &found));
    FindClose(search);
    ASSERT_EQ(1u, files.size());
    EXPECT_EQ(name, files[0]);

    // <exe>_<pid>_kwQtWrappers_<address>.log with the address in %p form.
    const std::wstring prefix =
        FileStem(ExePath()) + L"_" + std::to_wstring(GetCurrentProcessId()) + L"_kwQtWrappers_";
    ASSERT_EQ(0u, files[0].compare(0, prefix.size(), prefix)) << Utf8(files[0]);
    const std::wstring address = files[0].substr(prefix.size());
    ASSERT_EQ(16u + 4u, address.size()) << Utf8(files[0]);
    EXPECT_EQ(L".log", address.substr(16));
    for (size_t i = 0; i < 16; ++i)
        EXPECT_TRUE((address[i] >= L'0' && address[i] <= L'9') || (address[i] >= L'A' && address[i] <= L'F'))
            << Utf8(files[0]);
}

TEST_F(TraceFileTest, EveryLineAlsoGoesToTheDebuggerOutputInFileOrder)
{
    ScratchFolder scratch;
    SetTraceFolder(HKEY_CURRENT_USER, scratch.Path());
    std::vector<std::string> debugTexts;
    std::wstring name;
    {
        DebugOutputCapture capture;
        name = LoadAndUnload();
        debugTexts = capture.Texts();
    }
    bool ok = false;
    const std::string bytes = ReadBytes(scratch.Path() + L"\\" + name);
    ASSERT_GT(bytes.size(), 6u);
    const std::vector<TraceLine> lines = ParseLines(bytes.substr(6), ok);
    ASSERT_TRUE(ok);

    // Each message, then a lone line feed, in the order of the file.
    std::vector<std::string> expected;
    for (const TraceLine& line : lines) {
        expected.push_back(line.message);
        expected.push_back("\n");
    }
    EXPECT_EQ(expected, debugTexts);
}

TEST_F(TraceFileTest, ReloadAppendsANewBlockToTheSameFile)
{
    ScratchFolder scratch;
    SetTraceFolder(HKEY_CURRENT_USER, scratch.Path());
    const std::wstring first = LoadAndUnload();
    const std::string firstBytes = ReadBytes(scratch.Path() + L"\\" + first);
    ASSERT_FALSE(firstBytes.empty());
    const std::wstring second = LoadAndUnload();
    if (second != first)
        GTEST_SKIP() << "the second load used another address, so another file";

    const std::string bytes = ReadBytes(scratch.Path() + L"\\" + first);
    ASSERT_EQ(0u, bytes.compare(0, firstBytes.size(), firstBytes));
    const std::string added = bytes.substr(firstBytes.size());
    ASSERT_EQ(0u, added.compare(0, 6, kSeparator));
    bool ok = false;
    const std::vector<TraceLine> lines = ParseLines(added.substr(6), ok);
    ASSERT_TRUE(ok);
    ASSERT_EQ(12u, lines.size());
    EXPECT_EQ("The beginning of the trace file.", lines.front().message);
    EXPECT_EQ("The end of the trace file.", lines.back().message);
}

TEST_F(TraceFileTest, TwoLoadedCopiesWriteTwoFilesNamedByLoadAddress)
{
    ScratchFolder scratch;
    const std::wstring traceFolder = scratch.Sub(L"trace");
    const std::wstring copyFolder = scratch.Sub(L"copy");
    ASSERT_TRUE(CreateDirectoryW(copyFolder.c_str(), nullptr));
    const std::wstring copyPath = copyFolder + L"\\kwQtWrappers.dll";
    ASSERT_TRUE(CopyFileW(LibraryPath().c_str(), copyPath.c_str(), FALSE));
    SetTraceFolder(HKEY_CURRENT_USER, traceFolder);

    std::wstring names[2];
    std::wstring paths[2];
    {
        LoadedLibrary original(LibraryPath());
        LoadedLibrary copy(copyPath);
        ASSERT_NE(nullptr, original.Get());
        ASSERT_NE(nullptr, copy.Get());
        ASSERT_NE(original.Get(), copy.Get());
        names[0] = ExpectedTraceName(original.Get());
        names[1] = ExpectedTraceName(copy.Get());
        paths[0] = ModulePath(original.Get());
        paths[1] = ModulePath(copy.Get());
    }
    ASSERT_NE(names[0], names[1]);
    for (int i = 0; i < 2; ++i) {
        const std::string bytes = ReadBytes(traceFolder + L"\\" + names[i] + L".log");
        ASSERT_GT(bytes.size(), 6u) << Utf8(names[i]);
        bool ok = false;
        const std::vector<TraceLine> lines = ParseLines(bytes.substr(6), ok);
        ASSERT_TRUE(ok);
        ASSERT_EQ(12u, lines.size());
        EXPECT_EQ("    Name:     " + Utf8(names[i]), lines[2].message);
        EXPECT_EQ("    Path:     " + Utf8(paths[i]), lines[10].message);
        EXPECT_EQ("The end of the trace file.", lines[11].message);
    }
}

TEST_F(TraceFileTest, MissingParentFolderMovesOnToTheMachinePlace)
{
    ScratchFolder scratch;
    const std::wstring userFolder = scratch.Sub(L"missing\\trace");
    const std::wstring machineFolder = scratch.Sub(L"machine");
    SetTraceFolder(HKEY_CURRENT_USER, userFolder);
    SetTraceFolder(HKEY_LOCAL_MACHINE, machineFolder);

    const std::wstring name = LoadAndUnload();
    ASSERT_FALSE(name.empty());

    EXPECT_FALSE(FolderExists(scratch.Sub(L"missing"))) << "only one folder level may be created";
    const std::string bytes = ReadBytes(machineFolder + L"\\" + name);
    ASSERT_GT(bytes.size(), 6u);
    EXPECT_EQ(0u, bytes.compare(0, 6, kSeparator));
    bool ok = false;
    const std::vector<TraceLine> lines = ParseLines(bytes.substr(6), ok);
    ASSERT_TRUE(ok);
    ASSERT_EQ(12u, lines.size());
    EXPECT_EQ("The end of the trace file.", lines.back().message);
    EXPECT_FALSE(FileExists(TempFolder() + name));
}

TEST_F(TraceFileTest, MachinePlaceAloneIsUsed)
{
    ScratchFolder scratch;
    SetTraceFolder(HKEY_LOCAL_MACHINE, scratch.Path());
    const std::wstring name = LoadAndUnload();
    ASSERT_FALSE(name.empty());
    bool ok = false;
    const std::string bytes = ReadBytes(scratch.Path() + L"\\" + name);
    ASSERT_GT(bytes.size(), 6u);
    const std::vector<TraceLine> lines = ParseLines(bytes.substr(6), ok);
    ASSERT_TRUE(ok);
    EXPECT_EQ(12u, lines.size());
}

TEST_F(TraceFileTest, FolderThatCannotTakeTheFileFallsBackToTheTempFolder)
{
    ScratchFolder scratch;
    // A regular file where the folder should be: the folder "exists", so the
    // place is taken, but no file can be opened inside it.
    const std::wstring notAFolder = scratch.Sub(L"plain.txt");
    WriteBytes(notAFolder, "not a folder");
    SetTraceFolder(HKEY_CURRENT_USER, notAFolder);
    const std::wstring machineFolder = scratch.Sub(L"machine");
    SetTraceFolder(HKEY_LOCAL_MACHINE, machineFolder);

    HMODULE library = LoadLibraryW(LibraryPath().c_str());
    ASSERT_NE(nullptr, library);
    const std::wstring name = ExpectedTraceName(library) + L".log";
    const std::wstring tempFile = TempFolder() + name;
    FreeLibrary(library);

    const std::string bytes = ReadBytes(tempFile);
    DeleteFileW(tempFile.c_str());
    EXPECT_FALSE(FolderExists(machineFolder)) << "the user place was taken; the machine place must not be read";
    EXPECT_EQ("not a folder", ReadBytes(notAFolder));
    ASSERT_GT(bytes.size(), 6u) << "no trace file in " << Utf8(TempFolder());
    EXPECT_EQ(0u, bytes.compare(0, 6, kSeparator));
    bool ok = false;
    const std::vector<TraceLine> lines = ParseLines(bytes.substr(6), ok);
    ASSERT_TRUE(ok);
    ASSERT_EQ(12u, lines.size());
    EXPECT_EQ("    Name:     " + Utf8(name.substr(0, name.size() - 4)), lines[2].message);
    EXPECT_EQ("The end of the trace file.", lines.back().message);
}

TEST_F(TraceFileTest, NoConfiguredFolderWritesNothingAnywhere)
{
    ScratchFolder scratch;
    // A folder that was configured before and is configured no more.
    SetTraceFolder(HKEY_CURRENT_USER, scratch.Path());
    ClearTraceFolders();

    std::vector<std::string> debugTexts;
    HMODULE library = nullptr;
    std::wstring name;
    {
        DebugOutputCapture capture;
        library = LoadLibraryW(LibraryPath().c_str());
        ASSERT_NE(nullptr, library);
        name = ExpectedTraceName(library) + L".log";
        FreeLibrary(library);
        debugTexts = capture.Texts();
    }
    EXPECT_FALSE(FileExists(scratch.Path() + L"\\" + name));
    EXPECT_FALSE(FileExists(TempFolder() + name));
    EXPECT_TRUE(debugTexts.empty()) << "first debugger text: " << debugTexts.front();
}

TEST_F(TraceFileTest, EmptyUserValueMovesOnToTheMachinePlace)
{
    ScratchFolder scratch;
    SetTraceFolder(HKEY_CURRENT_USER, L"");
    SetTraceFolder(HKEY_LOCAL_MACHINE, scratch.Path());
    const std::wstring name = LoadAndUnload();
    ASSERT_FALSE(name.empty());
    EXPECT_TRUE(FileExists(scratch.Path() + L"\\" + name));
}

}  // namespace
