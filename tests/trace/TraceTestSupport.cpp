#include "TraceTestSupport.h"

#include <mutex>

namespace tracetest {

void SetTraceFolder(HKEY root, const std::wstring& folder)
{
    HKEY key = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, RegCreateKeyExW(root, kQuillmoorKey, 0, nullptr, 0, KEY_SET_VALUE, nullptr,
                                             &key, nullptr));
    const LONG rc = RegSetValueExW(key, kFolderValue, 0, REG_SZ, reinterpret_cast<const BYTE*>(folder.c_str()),
                                   static_cast<DWORD>((folder.size() + 1) * sizeof(wchar_t)));
    RegCloseKey(key);
    ASSERT_EQ(ERROR_SUCCESS, rc);
}

void ClearTraceFolders()
{
    const struct {
        HKEY root;
        REGSAM view;
    } places[] = {{HKEY_CURRENT_USER, 0}, {HKEY_LOCAL_MACHINE, 0}, {HKEY_LOCAL_MACHINE, KEY_WOW64_64KEY}};
    for (const auto& place : places) {
        HKEY key = nullptr;
        if (RegOpenKeyExW(place.root, kQuillmoorKey, 0, KEY_SET_VALUE | place.view, &key) == ERROR_SUCCESS) {
            RegDeleteValueW(key, kFolderValue);
            RegCloseKey(key);
        }
    }
}

std::wstring TempFolder()
{
    wchar_t buffer[MAX_PATH + 1] = {};
    GetTempPathW(MAX_PATH, buffer);
    return buffer;
}

std::wstring ModulePath(HMODULE module)
{
    wchar_t buffer[MAX_PATH + 1] = {};
    GetModuleFileNameW(module, buffer, MAX_PATH);
    return buffer;
}

std::wstring ExePath() { return ModulePath(nullptr); }

std::wstring ExeFolder()
{
    const std::wstring path = ExePath();
    return path.substr(0, path.find_last_of(L'\\'));
}

std::wstring FileStem(const std::wstring& path)
{
    std::wstring name = path.substr(path.find_last_of(L'\\') + 1);
    const size_t dot = name.find_last_of(L'.');
    return dot == std::wstring::npos ? name : name.substr(0, dot);
}

std::wstring ExpectedTraceName(HMODULE library)
{
    wchar_t address[32] = {};
    swprintf(address, 32, L"%016llX", static_cast<unsigned long long>(reinterpret_cast<UINT_PTR>(library)));
    return FileStem(ExePath()) + L"_" + std::to_wstring(GetCurrentProcessId()) + L"_" +
           FileStem(ModulePath(library)) + L"_" + address;
}

bool FileExists(const std::wstring& path)
{
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

bool FolderExists(const std::wstring& path)
{
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

std::string ReadBytes(const std::wstring& path)
{
    std::string bytes;
    HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                              nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return bytes;
    char chunk[4096];
    DWORD got = 0;
    while (ReadFile(file, chunk, sizeof(chunk), &got, nullptr) && got > 0)
        bytes.append(chunk, got);
    CloseHandle(file);
    return bytes;
}

void WriteBytes(const std::wstring& path, const std::string& bytes)
{
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    ASSERT_NE(INVALID_HANDLE_VALUE, file);
    DWORD written = 0;
    WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
    CloseHandle(file);
    ASSERT_EQ(bytes.size(), written);
}

void DeleteTree(const std::wstring& path)
{
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES)
        return;
    if (!(attributes & FILE_ATTRIBUTE_DIRECTORY)) {
        DeleteFileW(path.c_str());
        return;
    }
    WIN32_FIND_DATAW found;
    HANDLE search = FindFirstFileW((path + L"\\*").c_str(), &found);
    if (search != INVALID_HANDLE_VALUE) {
        do {
            const std::wstring name = found.cFileName;
            if (name != L"." && name != L"..")
                DeleteTree(path + L"\\" + name);
        } while (FindNextFileW(search, &found));
        FindClose(search);
    }
    RemoveDirectoryW(path.c_str());
}

std::string Utf8(const std::wstring& text)
{
    if (text.empty())
        return {};
    const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0,
                                         nullptr, nullptr);
    std::string out(static_cast<size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), &out[0], size, nullptr, nullptr);
    return out;
}

ScratchFolder::ScratchFolder()
{
    static unsigned counter = 0;
    path_ = TempFolder() + L"kwtrace_" + std::to_wstring(GetCurrentProcessId()) + L"_" +
            std::to_wstring(++counter);
    DeleteTree(path_);
    CreateDirectoryW(path_.c_str(), nullptr);
}

ScratchFolder::~ScratchFolder() { DeleteTree(path_); }

long long LocalMillis(const SYSTEMTIME& time)
{
    FILETIME file{};
    if (!SystemTimeToFileTime(&time, &file))
        return -1;
    ULARGE_INTEGER ticks;
    ticks.LowPart = file.dwLowDateTime;
    ticks.HighPart = file.dwHighDateTime;
    return static_cast<long long>(ticks.QuadPart / 10000);
}

long long LocalNowMillis()
{
    SYSTEMTIME now;
    GetLocalTime(&now);
    return LocalMillis(now);
}

namespace {
// Reads `count` decimal digits at text[pos]; -1 if any is not a digit.
int Digits(const std::string& text, size_t pos, size_t count)
{
    if (pos + count > text.size())
        return -1;
    int value = 0;
    for (size_t i = 0; i < count; ++i) {
        const char c = text[pos + i];
        if (c < '0' || c > '9')
            return -1;
        value = value * 10 + (c - '0');
    }
    return value;
}

// "YYYY-MM-DD hh:mm:ss.mmm " then the "%5u" thread column, three blanks and
// the message. Written by hand: std::regex recurses per character and
// overflows the stack on long lines.
bool SplitLine(TraceLine& line)
{
    const std::string& raw = line.raw;
    if (raw.size() < 24 || raw[4] != '-' || raw[7] != '-' || raw[10] != ' ' || raw[13] != ':' ||
        raw[16] != ':' || raw[19] != '.' || raw[23] != ' ')
        return false;
    const int fields[] = {Digits(raw, 0, 4),  Digits(raw, 5, 2),  Digits(raw, 8, 2), Digits(raw, 11, 2),
                          Digits(raw, 14, 2), Digits(raw, 17, 2), Digits(raw, 20, 3)};
    for (int field : fields)
        if (field < 0)
            return false;
    line.time.wYear = static_cast<WORD>(fields[0]);
    line.time.wMonth = static_cast<WORD>(fields[1]);
    line.time.wDay = static_cast<WORD>(fields[2]);
    line.time.wHour = static_cast<WORD>(fields[3]);
    line.time.wMinute = static_cast<WORD>(fields[4]);
    line.time.wSecond = static_cast<WORD>(fields[5]);
    line.time.wMilliseconds = static_cast<WORD>(fields[6]);

    size_t pos = 24;
    while (pos < raw.size() && raw[pos] == ' ')
        ++pos;
    const size_t digitsStart = pos;
    while (pos < raw.size() && raw[pos] >= '0' && raw[pos] <= '9')
        ++pos;
    const size_t width = pos - 24;
    const size_t digits = pos - digitsStart;
    // Right-aligned in five columns, or wider with no padding at all.
    if (digits == 0 || width < 5 || (width > 5 && digitsStart != 24))
        return false;
    if (raw.compare(pos, 3, "   ") != 0)
        return false;
    line.threadField = raw.substr(24, width);
    line.message = raw.substr(pos + 3);
    return true;
}
}  // namespace

std::vector<TraceLine> ParseLines(const std::string& bytes, bool& ok)
{
    ok = false;
    std::vector<TraceLine> lines;
    size_t pos = 0;
    while (pos < bytes.size()) {
        const size_t end = bytes.find("\r\n", pos);
        if (end == std::string::npos) {
            ADD_FAILURE() << "text after the last CR LF: " << bytes.substr(pos);
            return lines;
        }
        TraceLine line;
        line.raw = bytes.substr(pos, end - pos);
        pos = end + 2;
        if (line.raw.find_first_of("\r\n") != std::string::npos) {
            ADD_FAILURE() << "a lone CR or LF inside a line: [" << line.raw << "]";
            return lines;
        }
        if (!SplitLine(line)) {
            ADD_FAILURE() << "line does not have the trace line shape: [" << line.raw << "]";
            return lines;
        }
        lines.push_back(line);
    }
    ok = true;
    return lines;
}

std::vector<std::string> Messages(const std::vector<TraceLine>& lines)
{
    std::vector<std::string> out;
    for (const auto& line : lines)
        out.push_back(line.message);
    return out;
}

namespace {
// The win32 thread model of mingw-w64 has no std::mutex.
class CaptureLock {
public:
    CaptureLock() { InitializeCriticalSection(&section_); }
    void lock() { EnterCriticalSection(&section_); }
    void unlock() { LeaveCriticalSection(&section_); }

private:
    CRITICAL_SECTION section_;
};
CaptureLock g_captureLock;
std::vector<std::string> g_narrowTexts;
std::vector<std::string> g_wideTexts;
std::wstring g_watchedFile;
std::vector<long long> g_narrowSizes;
std::vector<long long> g_wideSizes;

long long WatchedFileSize()
{
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (g_watchedFile.empty() || !GetFileAttributesExW(g_watchedFile.c_str(), GetFileExInfoStandard, &data))
        return -1;
    return (static_cast<long long>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
}

// DBG_PRINTEXCEPTION_C carries (length, char*); DBG_PRINTEXCEPTION_WIDE_C
// carries (length, wchar_t*, length, char*).
constexpr DWORD kDebugPrint = 0x40010006;
constexpr DWORD kDebugPrintWide = 0x4001000A;

LONG CALLBACK CaptureDebugPrint(EXCEPTION_POINTERS* info)
{
    const EXCEPTION_RECORD* record = info->ExceptionRecord;
    if (record->ExceptionCode == kDebugPrint && record->NumberParameters >= 2) {
        std::lock_guard<CaptureLock> lock(g_captureLock);
        g_narrowTexts.emplace_back(reinterpret_cast<const char*>(record->ExceptionInformation[1]));
        g_narrowSizes.push_back(WatchedFileSize());
    } else if (record->ExceptionCode == kDebugPrintWide && record->NumberParameters >= 2) {
        std::lock_guard<CaptureLock> lock(g_captureLock);
        g_wideTexts.push_back(Utf8(reinterpret_cast<const wchar_t*>(record->ExceptionInformation[1])));
        g_wideSizes.push_back(WatchedFileSize());
    }
    return EXCEPTION_CONTINUE_SEARCH;
}
}  // namespace

DebugOutputCapture::DebugOutputCapture(const std::wstring& watchedFile)
{
    {
        std::lock_guard<CaptureLock> lock(g_captureLock);
        g_narrowTexts.clear();
        g_wideTexts.clear();
        g_narrowSizes.clear();
        g_wideSizes.clear();
        g_watchedFile = watchedFile;
    }
    handler_ = AddVectoredExceptionHandler(1, CaptureDebugPrint);
}

DebugOutputCapture::~DebugOutputCapture() { RemoveVectoredExceptionHandler(handler_); }

std::vector<std::string> DebugOutputCapture::Texts() const
{
    std::lock_guard<CaptureLock> lock(g_captureLock);
    // Where the system raises the wide form, the narrow one may follow as a
    // fall-back for the same text; the wide list is then the complete one.
    return g_wideTexts.empty() ? g_narrowTexts : g_wideTexts;
}

std::vector<long long> DebugOutputCapture::FileSizes() const
{
    std::lock_guard<CaptureLock> lock(g_captureLock);
    return g_wideTexts.empty() ? g_narrowSizes : g_wideSizes;
}

}  // namespace tracetest
