#include "card/card_result.h"

#include "card/card_log.h"
#include "smmw.h"

#include <new>

namespace {

struct CodeRow {
    uint32_t moduleCode;
    uint32_t layerCode;
};

const CodeRow kModuleCodes[] = {
    {3000, CV_OBJ_API_INVALID_PARAMETER}, {3001, CV_OBJ_API_NOT_SUPPORTED}, {3002, CV_OBJ_API_NO_CARD},
    {3003, CV_OBJ_API_NO_CARD},           {3005, CV_OBJ_API_NO_CARD},       {3009, CV_OBJ_API_NO_CARD},
    {3011, CV_OBJ_API_NO_CARD},           {3014, CV_OBJ_API_NO_CARD},       {3019, CV_OBJ_API_NO_CARD},
    {3022, CV_OBJ_API_NO_CARD},           {3004, CV_OBJ_API_CANCELLED},     {3006, CV_OBJ_API_PIN_BLOCKED},
    {3021, CV_OBJ_API_PIN_BLOCKED},       {3007, CV_OBJ_API_ACCESS_DENIED}, {3008, CV_OBJ_API_WRONG_CODE},
    {3010, CV_OBJ_API_WRONG_CODE},        {3012, CV_OBJ_API_ERROR_9},       {3020, CV_OBJ_API_ERROR_9},
    {3013, CV_OBJ_API_TIMEOUT},           {3015, CV_OBJ_API_NO_MEMORY},     {3017, CV_OBJ_API_ERROR_8},
    {3018, CV_OBJ_API_ERROR_7},           {3028, CV_OBJ_API_ERROR_6},
};

} // namespace

uint32_t MapModuleCode(uint32_t moduleCode) {
    for (const CodeRow& row : kModuleCodes)
        if (row.moduleCode == moduleCode) return row.layerCode;
    return CV_OBJ_API_FAILED;
}

uint32_t ReportCaughtFailure(int level, const wchar_t* format) noexcept {
    try {
        throw;
    } catch (NV::Framework::IException* e) {
        if (!e) {
            COBLOG(level, format, L"(no exception object)");
            return CV_OBJ_API_FAILED;
        }
        const wchar_t* message = e->GetMessageText();
        COBLOG(level, format, message ? message : L"");
        uint32_t code = MapModuleCode(e->GetCode());
        e->Release();
        return code;
    } catch (const std::bad_alloc&) {
        COBLOG(level, format, L"out of memory");
        return CV_OBJ_API_NO_MEMORY;
    } catch (...) {
        COBLOG(level, format, L"unexpected exception");
        return CV_OBJ_API_FAILED;
    }
}
