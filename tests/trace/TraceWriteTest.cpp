// Messages written through TraceWrite, reached through the test-only probe
// DLL (kwTraceProbe.dll), which links the library's trace object and opens
// the log in its static initialisation as the library does.
#include "TraceTestSupport.h"

#include "trace/TraceLog.h"

#include <cstdio>
#include <string>
#include <vector>

using namespace tracetest;

namespace {

using ProbeTraceWriteFn = void (*)(const wchar_t*, const wchar_t*, unsigned, void*);

std::wstring ProbePath() { return ExeFolder() + L"\\kwTraceProbe.dll"; }

class TraceWriteTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ClearTraceFolders();
        SetTraceFolder(HKEY_CURRENT_USER, scratch_.Path());
        probe_ = LoadLibraryW(ProbePath().c_str());
        ASSERT_NE(nullptr, probe_) << "kwTraceProbe.dll is expected beside the test program";
        write_ = reinterpret_cast<ProbeTraceWriteFn>(
            reinterpret_cast<void*>(GetProcAddress(probe_, "ProbeTraceWrite")));
        ASSERT_NE(nullptr, write_);
        file_ = scratch_.Path() + L"\\" + ExpectedTraceName(probe_) + L".log";
    }
    void TearDown() override
    {
        Unload();
        ClearTraceFolders();
    }
    void Unload()
    {
        if (probe_)
            FreeLibrary(probe_);
        probe_ = nullptr;
    }
    // The lines after the header, as the file holds them after unload.
    std::vector<TraceLine> BodyLines(bool& ok)
    {
        const std::string bytes = ReadBytes(file_);
        if (bytes.compare(0, 6, "\r\n\r\n\r\n") != 0) {
            ADD_FAILURE() << "no separator at the start of " << Utf8(file_);
            ok = false;
            return {};
        }
        std::vector<TraceLine> lines = ParseLines(bytes.substr(6), ok);
        if (ok && lines.size() >= 11)
            lines.erase(lines.begin(), lines.begin() + 11);
        return lines;
    }

    ScratchFolder scratch_;
    HMODULE probe_ = nullptr;
    ProbeTraceWriteFn write_ = nullptr;
    std::wstring file_;
};

TEST_F(TraceWriteTest, MessagesLongerThanTheFirstBufferAreWrittenWhole)
{
    std::vector<std::string> expected;
    for (size_t length : {2046u, 2047u, 2048u, 4095u, 4096u, 10000u}) {
        std::wstring text(length, L'x');
        for (size_t i = 0; i < length; i += 97)
            text[i] = static_cast<wchar_t>(L'a' + (i / 97) % 26);  // catches a repeated or dropped chunk
        write_(L"%s", text.c_str(), 0, nullptr);
        expected.push_back(Utf8(text));
    }
    // Formatting itself, not only the argument, may run past the buffer.
    write_(L"%s|%u", std::wstring(2045, L'y').c_str(), 123456u, nullptr);
    expected.push_back(std::string(2045, 'y') + "|123456");
    expected.push_back("The end of the trace file.");
    Unload();

    bool ok = false;
    const std::vector<TraceLine> lines = BodyLines(ok);
    ASSERT_TRUE(ok);
    EXPECT_EQ(expected, Messages(lines));
}

TEST_F(TraceWriteTest, CarriageReturnsAreRemovedSoTextModeWritesOneCrLf)
{
    write_(L"%s", L"first\r\nsecond\rthird\n", 0, nullptr);
    write_(L"after", nullptr, 0, nullptr);
    Unload();

    const std::string bytes = ReadBytes(file_);
    // The message's own line feed comes out as CR LF with no prefix after
    // it; the lone CR is gone.
    const std::string expectedText = "   first\r\nsecondthird\r\n\r\n";
    const size_t at = bytes.find(expectedText);
    ASSERT_NE(std::string::npos, at) << bytes;
    EXPECT_EQ(std::string::npos, bytes.find("\r\r"));
    EXPECT_EQ(std::string::npos, bytes.find("\rs")) << "a CR survived";
    // The next line is a normal line again.
    const std::string rest = bytes.substr(at + expectedText.size());
    bool ok = false;
    const std::vector<TraceLine> lines = ParseLines(rest, ok);
    ASSERT_TRUE(ok);
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ("after", lines[0].message);
    EXPECT_EQ("The end of the trace file.", lines[1].message);
}

TEST_F(TraceWriteTest, FormatUsesWideStringsAndFullPointersAndWritesUtf8)
{
    void* pointer = reinterpret_cast<void*>(static_cast<UINT_PTR>(0x00007FF6ABCD0123ull));
    write_(L"s=%s u=%u p=%p", L"Gr\u00FC\u00DFe \u20AC \U0001F600", 4294967295u, pointer);
    Unload();

    bool ok = false;
    const std::vector<TraceLine> lines = BodyLines(ok);
    ASSERT_TRUE(ok);
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ("s=Gr\xC3\xBC\xC3\x9F" "e \xE2\x82\xAC \xF0\x9F\x98\x80 u=4294967295 p=00007FF6ABCD0123",
              lines[0].message);
    EXPECT_EQ(std::string::npos, ReadBytes(file_).find("\xEF\xBB\xBF")) << "no byte-order mark";
}

DWORD WINAPI WriteFromThread(void* argument)
{
    auto write = reinterpret_cast<ProbeTraceWriteFn>(argument);
    write(L"%sfrom thread %u", L"", GetCurrentThreadId(), nullptr);
    return 0;
}

TEST_F(TraceWriteTest, EachLineNamesTheWritingThreadInFiveColumns)
{
    write_(L"%sfrom thread %u", L"", GetCurrentThreadId(), nullptr);
    HANDLE thread = CreateThread(nullptr, 0, WriteFromThread, reinterpret_cast<void*>(write_), 0, nullptr);
    ASSERT_NE(nullptr, thread);
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
    Unload();

    bool ok = false;
    const std::vector<TraceLine> lines = BodyLines(ok);
    ASSERT_TRUE(ok);
    ASSERT_EQ(3u, lines.size());
    for (size_t i = 0; i < 2; ++i) {
        const std::string prefix = "from thread ";
        ASSERT_EQ(0u, lines[i].message.compare(0, prefix.size(), prefix)) << lines[i].raw;
        const unsigned id = static_cast<unsigned>(std::stoul(lines[i].message.substr(prefix.size())));
        char field[16];
        snprintf(field, sizeof(field), "%5u", id);
        EXPECT_EQ(field, lines[i].threadField) << lines[i].raw;
    }
    EXPECT_NE(lines[0].threadField, lines[1].threadField);
}

TEST_F(TraceWriteTest, DebuggerOutputCarriesTheMessageWithoutCarriageReturnsBeforeTheFileLine)
{
    const long long sizeBefore = static_cast<long long>(ReadBytes(file_).size());
    std::vector<std::string> texts;
    std::vector<long long> sizes;
    {
        DebugOutputCapture capture(file_);
        write_(L"%s", L"one\r\ntwo", 0, nullptr);
        texts = capture.Texts();
        sizes = capture.FileSizes();
    }
    const std::vector<std::string> expected = {"one\ntwo", "\n"};
    EXPECT_EQ(expected, texts);
    // Both debugger texts went out while the file did not yet hold the line.
    const std::vector<long long> expectedSizes = {sizeBefore, sizeBefore};
    EXPECT_EQ(expectedSizes, sizes);
    EXPECT_GT(static_cast<long long>(ReadBytes(file_).size()), sizeBefore);
}

// The trace object linked into this program, which is then both the
// process's executable and the module that writes the log.
TEST(TraceInExecutable, NameHasOnlyExecutableAndProcessId)
{
    ScratchFolder scratch;
    ClearTraceFolders();
    SetTraceFolder(HKEY_CURRENT_USER, scratch.Path());
    OpenTraceLog();
    TraceWrite(L"inside %s", L"the executable");
    CloseTraceLog();
    ClearTraceFolders();

    const std::wstring name = FileStem(ExePath()) + L"_" + std::to_wstring(GetCurrentProcessId());
    const std::string bytes = ReadBytes(scratch.Path() + L"\\" + name + L".log");
    ASSERT_GT(bytes.size(), 6u);
    bool ok = false;
    const std::vector<TraceLine> lines = ParseLines(bytes.substr(6), ok);
    ASSERT_TRUE(ok);
    ASSERT_EQ(13u, lines.size());
    EXPECT_EQ("    Name:     " + Utf8(name), lines[2].message);
    EXPECT_EQ("    Path:     " + Utf8(ExePath()), lines[10].message);
    EXPECT_EQ("inside the executable", lines[11].message);
    EXPECT_EQ("The end of the trace file.", lines[12].message);

    // Once closed, writing is a no-op.
    TraceWrite(L"after closing");
    EXPECT_EQ(bytes, ReadBytes(scratch.Path() + L"\\" + name + L".log"));
}

}  // namespace
