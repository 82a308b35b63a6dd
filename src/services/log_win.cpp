// The default log sink: appends UTF-8 lines to a file that several processes may share.
#include "services/log_win.h"

#include "services/log.h"
#include "services/settings.h"

#include <windows.h>
#include <shlobj.h>

#include <atomic>
#include <cstdio>
#include <mutex>
#include <string>

namespace {

const wchar_t kFileSetting[] = L"Corvana.Logging.File";
const wchar_t kLevelsSetting[] = L"Corvana.Logging.Levels";
const wchar_t kDefaultRelativePath[] = L"\\Lumetra\\Corvana\\Logs\\cvpingui.log";
constexpr unsigned kDefaultLevels = 0x1; // errors only
// Every log call, also the disabled entry and exit lines, passes here; reading the registry
// each time would cost more than the dialogs' own work. A change applies within this delay.
constexpr ULONGLONG kRefreshMs = 1000;
// A file that cannot be opened (a folder that cannot be created, a path too long) would cost its
// failed system calls on every line, and lines come by the hundred per dialog.
constexpr ULONGLONG kRetryAfterFailureMs = 5000;

std::atomic<LogFileOpener> g_opener{nullptr};

// The bit of a level in "Corvana.Logging.Levels"; 0 for levels that have none.
unsigned LevelBit(int level) {
    switch (level) {
    case CVLOG_ERROR:
        return 0x1;
    case CVLOG_INFO:
        return 0x2;
    case CVLOG_DETAIL:
        return 0x4;
    case CVLOG_ENTRY:
        return 0x8;
    case CVLOG_EXIT:
        return 0x10;
    default:
        return 0;
    }
}

std::wstring DefaultLogPath() {
    wchar_t folder[MAX_PATH + 1];
    DWORD length = GetEnvironmentVariableW(L"LOCALAPPDATA", folder, MAX_PATH + 1);
    if (length > 0 && length <= MAX_PATH) return std::wstring(folder, length) + kDefaultRelativePath;
    // Accounts without a profile environment (services) still have a known folder.
    PWSTR known = nullptr;
    std::wstring path;
    if (SUCCEEDED(SHGetKnownFolderPath(FOLDERID_LocalAppData, 0, nullptr, &known)) && known)
        path = std::wstring(known) + kDefaultRelativePath;
    CoTaskMemFree(known);
    return path;
}

// Creates every missing folder above the file; failures show up when the file is opened.
void CreateParentFolders(const std::wstring& file) {
    for (size_t i = 1; i < file.size(); ++i) {
        if (file[i] != L'\\' && file[i] != L'/') continue;
        if (file[i - 1] == L':' || file[i - 1] == L'\\' || file[i - 1] == L'/') continue;
        CreateDirectoryW(file.substr(0, i).c_str(), nullptr);
    }
}

HANDLE OpenForAppend(const std::wstring& path) {
    return CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                       nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
}

void AppendUtf8(std::string& out, const wchar_t* text) {
    int textLength = static_cast<int>(wcslen(text));
    if (textLength == 0) return;
    int bytes = WideCharToMultiByte(CP_UTF8, 0, text, textLength, nullptr, 0, nullptr, nullptr);
    if (bytes <= 0) return;
    size_t at = out.size();
    out.resize(at + bytes);
    WideCharToMultiByte(CP_UTF8, 0, text, textLength, &out[at], bytes, nullptr, nullptr);
}

class FileLogSink : public ILogSink {
  public:
    bool Accepts(int level) override {
        bool accepted = false;
        Guarded([&] {
            RefreshIfStale();
            accepted = (m_levels.load() & LevelBit(level)) != 0;
        });
        return accepted;
    }

    void Write(const wchar_t* tag, int level, const wchar_t* line) override {
        Guarded([&] { WriteLine(tag ? tag : L"", level, line ? line : L""); });
    }

    void Reload() { m_loadedAt.store(0); }

  private:
    // Runs part of the sink for a caller that must not notice: its last error stays as it was
    // (callers log a failure before they return GetLastError()), nothing is thrown (not even
    // when memory runs out), and a host's settings store that logs is not let back in while
    // the lock is held.
    template <class Body>
    static void Guarded(Body&& body) {
        const DWORD lastError = GetLastError();
        static thread_local bool busy = false;
        if (!busy) {
            busy = true;
            try {
                body();
            } catch (...) {
            }
            busy = false;
        }
        SetLastError(lastError);
    }

    void WriteLine(const wchar_t* tag, int level, const wchar_t* line) {
        if (!(m_levels.load() & LevelBit(level))) return;

        SYSTEMTIME now;
        GetLocalTime(&now);
        char head[96];
        snprintf(head, sizeof head, "%04u-%02u-%02u %02u:%02u:%02u.%03u %lu %lu ", now.wYear, now.wMonth,
                 now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds,
                 static_cast<unsigned long>(GetCurrentProcessId()),
                 static_cast<unsigned long>(GetCurrentThreadId()));
        std::string text(head);
        AppendUtf8(text, tag);
        text += ' ';
        text += std::to_string(level);
        text += ' ';
        AppendUtf8(text, line);
        text += "\r\n";

        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_path.empty()) return;
        const ULONGLONG tick = GetTickCount64();
        if (m_failedAt != 0 && tick - m_failedAt < kRetryAfterFailureMs) return;
        // Opened for each line: another process may append in between, and the file may be
        // moved away or deleted at any time without stopping the logging.
        const LogFileOpener opener = g_opener.load();
        HANDLE file = (opener ? opener : OpenLogFile)(m_path.c_str());
        if (file == INVALID_HANDLE_VALUE) {
            m_failedAt = tick ? tick : 1;
            return;
        }
        m_failedAt = 0;
        DWORD written = 0;
        WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
        CloseHandle(file);
    }

    void RefreshIfStale() {
        ULONGLONG now = GetTickCount64();
        ULONGLONG loadedAt = m_loadedAt.load();
        if (loadedAt != 0 && now - loadedAt < kRefreshMs) return;

        std::lock_guard<std::mutex> lock(m_mutex);
        loadedAt = m_loadedAt.load();
        if (loadedAt != 0 && now - loadedAt < kRefreshMs) return;
        std::wstring path;
        if (!ReadStringSetting(kFileSetting, path) || path.empty()) path = DefaultLogPath();
        long long levels = ReadIntegerSetting(kLevelsSetting, kDefaultLevels);
        if (path != m_path) m_failedAt = 0; // a corrected setting is tried at once
        m_path.swap(path);
        m_levels.store(static_cast<unsigned>(levels));
        m_loadedAt.store(now ? now : 1);
    }

    std::mutex m_mutex; // guards m_path, m_failedAt and the file
    std::wstring m_path;
    ULONGLONG m_failedAt = 0; // when m_path last failed to open; 0: not since it was set
    std::atomic<unsigned> m_levels{kDefaultLevels};
    std::atomic<ULONGLONG> m_loadedAt{0}; // 0: never loaded, or a reload was asked for
};

// Never destroyed: static destructors of other objects may still log while the module unloads.
FileLogSink& TheFileSink() {
    static FileLogSink* sink = new FileLogSink;
    return *sink;
}

} // namespace

HANDLE OpenLogFile(const wchar_t* path) {
    const std::wstring file = path ? path : L"";
    HANDLE handle = OpenForAppend(file);
    if (handle == INVALID_HANDLE_VALUE && GetLastError() == ERROR_PATH_NOT_FOUND) {
        CreateParentFolders(file);
        handle = OpenForAppend(file);
    }
    return handle;
}

void SetLogFileOpener(LogFileOpener opener) {
    g_opener.store(opener);
}

ILogSink* DefaultLogSink() {
    return &TheFileSink();
}

void ReloadLogSettings() {
    TheFileSink().Reload();
}
