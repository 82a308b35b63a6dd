#include "services/log.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

struct CapturingSink : ILogSink {
    void Write(const wchar_t* tag, int level, const wchar_t* line) override {
        lines.push_back(std::wstring(tag) + L"|" + std::to_wstring(level) + L"|" + line);
    }
    std::vector<std::wstring> lines;
};

TEST(Log, FormatsIntoTheSinkCutsLongLinesAndTracesScopes) {
    CapturingSink sink;
    SetLogSink(&sink);
    GUILOG(CVLOG_INFO, L"%ls has %d tries", L"card", 3);
    cvlogLog(nullptr, CVLOG_ERROR, L"%ls", std::wstring(5000, L'x').c_str());
    cvlogLog(CVLOG_TAG_CARD, CVLOG_ERROR, nullptr);
    { LogScope scope(L"ShowPinDialog"); }
    SetLogSink(nullptr);
    GUILOG(CVLOG_INFO, L"dropped: no file sink in native builds");

    ASSERT_EQ(sink.lines.size(), 4u);
    EXPECT_EQ(sink.lines[0], L"NVPINGUI|2|card has 3 tries");
    EXPECT_EQ(sink.lines[1], L"|1|" + std::wstring(2047, L'x'));
    EXPECT_EQ(sink.lines[2], L"NVPINGUI|8|ShowPinDialog");
    EXPECT_EQ(sink.lines[3], L"NVPINGUI|16|ShowPinDialog");
}

} // namespace
