#include "card/card_result.h"

#include "card/card_log.h"
#include "smmw.h"

#include <new>

namespace {

struct CodeRow {
    uint32_t moduleCode;
    uint32_t layerCode;
};

using namespace NV::SMMW;

const CodeRow kModuleCodes[] = {
    {SMMW_E_INVALID_PARAMETER, CV_OBJ_API_INVALID_PARAMETER},
    {SMMW_E_NOT_SUPPORTED, CV_OBJ_API_NOT_SUPPORTED},
    {SMMW_E_NO_CARD, CV_OBJ_API_NO_CARD},
    {SMMW_E_CARD_REMOVED, CV_OBJ_API_NO_CARD},
    {SMMW_E_NO_READER, CV_OBJ_API_NO_CARD},
    {SMMW_E_READER_UNAVAILABLE, CV_OBJ_API_NO_CARD},
    {SMMW_E_CARD_UNRESPONSIVE, CV_OBJ_API_NO_CARD},
    {SMMW_E_CARD_RESET, CV_OBJ_API_NO_CARD},
    {SMMW_E_READER_REMOVED, CV_OBJ_API_NO_CARD},
    {SMMW_E_NO_SMARTCARD, CV_OBJ_API_NO_CARD},
    {SMMW_E_CANCELLED, CV_OBJ_API_CANCELLED},
    {SMMW_E_PIN_BLOCKED, CV_OBJ_API_PIN_BLOCKED},
    {SMMW_E_PIN_LOCKED, CV_OBJ_API_PIN_BLOCKED},
    {SMMW_E_ACCESS_DENIED, CV_OBJ_API_ACCESS_DENIED},
    {SMMW_E_WRONG_CODE, CV_OBJ_API_WRONG_CODE},
    {SMMW_E_WRONG_PIN, CV_OBJ_API_WRONG_CODE},
    {SMMW_E_CARD_COMMAND_FAILED, CV_OBJ_API_ERROR_9},
    {SMMW_E_CARD_COMMUNICATION, CV_OBJ_API_ERROR_9},
    {SMMW_E_TIMEOUT, CV_OBJ_API_TIMEOUT},
    {SMMW_E_NO_MEMORY, CV_OBJ_API_NO_MEMORY},
    {SMMW_E_CARD_FULL, CV_OBJ_API_ERROR_8},
    {SMMW_E_FILE_NOT_FOUND, CV_OBJ_API_ERROR_7},
    {SMMW_E_UNSUPPORTED_CARD, CV_OBJ_API_ERROR_6},
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
