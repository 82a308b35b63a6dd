// The logging service. Lines go to a file (see the README for the settings); quiet by default.
// Never pass a secret to these functions.
#pragma once

enum CVLogLevel {
    CVLOG_DETAIL = 0,
    CVLOG_ERROR = 1,
    CVLOG_INFO = 2,
    CVLOG_ENTRY = 8,
    CVLOG_EXIT = 16,
};

#define CVLOG_TAG_GUI L"NVPINGUI"
#define CVLOG_TAG_CARD L"CVCOBAPI"

// printf-style with a wide format (%s is a wide string).
void cvlogLog(const wchar_t* tag, int level, const wchar_t* format, ...);

// Where lines go; a host or a test may replace it (nullptr restores the file sink).
class ILogSink {
public:
    virtual ~ILogSink() = default;
    // Asked before a line is formatted, so that lines nobody keeps cost next to nothing.
    virtual bool Accepts(int level) { return true; }
    virtual void Write(const wchar_t* tag, int level, const wchar_t* line) = 0;
};
void SetLogSink(ILogSink* sink);

// Logs name at entry (level 8) and at exit (level 16) of a scope.
class LogScope {
public:
    explicit LogScope(const wchar_t* name, const wchar_t* tag = CVLOG_TAG_GUI);
    ~LogScope();
    LogScope(const LogScope&) = delete;
    LogScope& operator=(const LogScope&) = delete;

private:
    const wchar_t* m_name;
    const wchar_t* m_tag;
};

#define GUILOG(level, ...) cvlogLog(CVLOG_TAG_GUI, level, __VA_ARGS__)
