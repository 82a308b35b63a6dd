// Exported functions never let an exception out: a failure inside becomes the function's
// failure value, and is logged.
#pragma once
#include <exception>
#include "services/log.h"

template <class Result, class Body>
Result Guarded(const wchar_t* function, Result failure, Body&& body) noexcept {
    try {
        return body();
    } catch (const std::exception& e) {
        GUILOG(CVLOG_ERROR, L"%s: unexpected failure (%S)", function, e.what());
    } catch (...) {
        GUILOG(CVLOG_ERROR, L"%s: unexpected failure", function);
    }
    return failure;
}

template <class Body>
void GuardedVoid(const wchar_t* function, Body&& body) noexcept {
    Guarded(function, 0, [&] {
        body();
        return 0;
    });
}
