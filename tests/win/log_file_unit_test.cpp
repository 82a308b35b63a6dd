// The log file sink with a file that cannot be opened: one failed attempt, not one per line.
#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <cstdio>
#include <string>

#include "services/log.h"
#include "services/log_win.h"
#include "services/settings.h"

namespace {

std::atomic<int> g_attempts{0};

HANDLE CountingOpener(const wchar_t* path) {
    ++g_attempts;
    return OpenLogFile(path);
}

struct LogSettings : ISettingsStore {
    std::wstring file;
    bool Read(const wchar_t* key, CVData& value) override {
        if (wcscmp(key, L"Corvana.Logging.File") == 0) {
            value = CVData::FromString(file);
            return true;
        }
        if (wcscmp(key, L"Corvana.Logging.Levels") == 0) {
            value = CVData::FromInteger(0x1F);
            return true;
        }
        return false;
    }
};

TEST(LogFile, AnUnusablePathCostsOneAttemptAndACorrectedOneIsUsedAtOnce) {
    LogSettings settings;
    // A folder name far beyond what any file system takes, in a path of about 2 KB.
    settings.file = L"C:\\" + std::wstring(2040, L'x') + L"\\cvpingui.log";
    SetSettingsStore(&settings);
    SetLogFileOpener(CountingOpener);
    ReloadLogSettings();

    for (int i = 0; i < 200; ++i)
        GUILOG(CVLOG_ERROR, L"line %d", i);
    EXPECT_EQ(g_attempts.load(), 1);

    wchar_t folder[MAX_PATH] = {};
    GetTempPathW(MAX_PATH, folder);
    settings.file = std::wstring(folder) + L"cvpin-log-file-test.log";
    DeleteFileW(settings.file.c_str());
    ReloadLogSettings();
    GUILOG(CVLOG_ERROR, L"after the correction");
    EXPECT_EQ(g_attempts.load(), 2);

    SetLogFileOpener(nullptr);
    SetSettingsStore(nullptr);
    ReloadLogSettings();
    std::string text(4096, '\0');
    if (FILE* in = _wfopen(settings.file.c_str(), L"rb")) {
        text.resize(fread(&text[0], 1, text.size(), in));
        fclose(in);
    }
    EXPECT_NE(text.find("after the correction"), std::string::npos);
    DeleteFileW(settings.file.c_str());
}

}  // namespace
