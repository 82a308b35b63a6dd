// The card layer's return codes, and how failures of the security module become one of them.
// Only the numbers are part of the contract; callers compare with 0 and, for the unlock, with
// CV_OBJ_API_WRONG_CODE and CV_OBJ_API_PIN_BLOCKED.
#pragma once
#include <cstdint>

enum CVObjApiResult : uint32_t {
    CV_OBJ_API_OK = 0,
    CV_OBJ_API_CANCELLED = 1,
    CV_OBJ_API_NO_MEMORY = 2,
    CV_OBJ_API_FAILED = 3,     // anything without a code of its own
    CV_OBJ_API_NO_CARD = 4,    // no card, card removed, reader gone
    CV_OBJ_API_WRONG_CODE = 5, // wrong PIN or wrong unblock response
    CV_OBJ_API_ERROR_6 = 6,    // module failures passed on under their own numbers
    CV_OBJ_API_ERROR_7 = 7,
    CV_OBJ_API_ERROR_8 = 8,
    CV_OBJ_API_ERROR_9 = 9,
    CV_OBJ_API_INVALID_PARAMETER = 13,
    CV_OBJ_API_TIMEOUT = 14,
    CV_OBJ_API_NOT_SUPPORTED = 21,
    CV_OBJ_API_ACCESS_DENIED = 22,
    CV_OBJ_API_PIN_BLOCKED = 23,
};

// The layer code for a security-module failure code.
uint32_t MapModuleCode(uint32_t moduleCode);

// Call inside a catch block only. Logs the caught failure with format (one %ls: the module's
// message) at level, releases a module exception, and returns the layer code for it. Foreign
// exceptions count as CV_OBJ_API_FAILED (bad_alloc as CV_OBJ_API_NO_MEMORY).
uint32_t ReportCaughtFailure(int level, const wchar_t* format) noexcept;

// Runs work; a failure thrown by it is reported as above. The layer's one way of turning the
// module's exceptions into codes, so that none leaves the layer.
template <class Work> uint32_t CallModule(int level, const wchar_t* format, Work&& work) noexcept {
    try {
        work();
        return CV_OBJ_API_OK;
    } catch (...) {
        return ReportCaughtFailure(level, format);
    }
}
