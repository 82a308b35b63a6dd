// Formatting and dispatch of log lines; where they end up is the sink's business. The file sink
// of the Windows build is DefaultLogSink() in log_win.cpp.
#include "services/log.h"

#include <atomic>
#include <cstdarg>
#include <cwchar>

ILogSink* DefaultLogSink();

namespace {
std::atomic<ILogSink*> g_sink{nullptr};
constexpr int kLineChars = 2048;
} // namespace

#ifndef _WIN32
// Natively there is no log file: without a sink set by a test, lines are dropped.
ILogSink* DefaultLogSink() {
    return nullptr;
}
#endif

void SetLogSink(ILogSink* sink) {
    g_sink.store(sink);
}

void cvlogLog(const wchar_t* tag, int level, const wchar_t* format, ...) {
    ILogSink* sink = g_sink.load();
    if (!sink) sink = DefaultLogSink();
    if (!sink || !format || !sink->Accepts(level)) return;
    // Long lines are cut; both printf flavours may leave no terminator when they do.
    wchar_t line[kLineChars] = {};
    va_list args;
    va_start(args, format);
#ifdef _WIN32
    _vsnwprintf(line, kLineChars - 1, format, args);
#else
    vswprintf(line, kLineChars, format, args);
#endif
    va_end(args);
    line[kLineChars - 1] = 0;
    sink->Write(tag ? tag : L"", level, line);
}

// %ls means a wide string for both printf flavours.
LogScope::LogScope(const wchar_t* name, const wchar_t* tag) : m_name(name ? name : L""), m_tag(tag) {
    cvlogLog(m_tag, CVLOG_ENTRY, L"%ls", m_name);
}

LogScope::~LogScope() {
    cvlogLog(m_tag, CVLOG_EXIT, L"%ls", m_name);
}
