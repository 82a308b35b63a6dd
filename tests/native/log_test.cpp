#include "services/log.h"

#include <gtest/gtest.h>

#include <string>

TEST(Log, FormatsIntoTheSinkCutsLongLinesAndTracesScopes) {
    struct : ILogSink {
        bool Accepts(int level) override { return level != CVLOG_DETAIL; }
        void Write(const wchar_t* tag, int level, const wchar_t* line) override {
            text += std::wstring(tag) + L"|" + std::to_wstring(level) + L"|" + line + L"\n";
        }
        std::wstring text;
    } sink;
    SetLogSink(&sink);
    GUILOG(CVLOG_DETAIL, L"%ls", L"refused by the sink");
    GUILOG(CVLOG_INFO, L"%ls has %d tries", L"card", 3);
    cvlogLog(nullptr, CVLOG_ERROR, L"%ls", std::wstring(5000, L'x').c_str());
    cvlogLog(CVLOG_TAG_CARD, CVLOG_ERROR, nullptr);
    { LogScope scope(L"ShowPinDialog"); }
    SetLogSink(nullptr);
    EXPECT_EQ(sink.text, L"NVPINGUI|2|card has 3 tries\n|1|" + std::wstring(2047, L'x') +
                             L"\nNVPINGUI|8|ShowPinDialog\nNVPINGUI|16|ShowPinDialog\n");
}
