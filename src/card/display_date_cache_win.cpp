// Each card's display-notification date in the shared data cache: one VT_UI8 element, the date
// in seconds since 1970 (UTC), under the card's serial number.
#include "card/display_date_cache.h"

#include "card/card_log.h"
#include "card/local_time_text.h"
#include "services/data_cache_win.h"

#include <windows.h>
#include <oleauto.h>

#include <memory>

namespace {

// The cache's statuses are logged by their low 16 bits, which carry the Win32 error.
unsigned Low16(HRESULT hr) {
    return static_cast<unsigned>(hr) & 0xFFFF;
}

struct BstrFree {
    void operator()(wchar_t* s) const { SysFreeString(s); }
};
struct ArrayDestroy {
    void operator()(SAFEARRAY* a) const { SafeArrayDestroy(a); }
};
using Bstr = std::unique_ptr<wchar_t, BstrFree>;
using Array = std::unique_ptr<SAFEARRAY, ArrayDestroy>;

// The record's three ids and a one-element date vector; null members (logged) on failure.
struct DateRecord {
    Bstr storeId, compartmentId, dataId;
    Array array;

    // operation: "CVCardManagement::GetDisplayNotificationDate" or "...Set...".
    bool Allocate(const CSecStr& serial, const wchar_t* operation) {
        storeId.reset(SysAllocString(kDisplayDateStoreId));
        if (!storeId) return Fail(operation, L"sStoreId");
        compartmentId.reset(SysAllocString(serial.GetString()));
        if (!compartmentId) return Fail(operation, L"sCompartmentId");
        dataId.reset(SysAllocString(kDisplayDateDataId));
        if (!dataId) return Fail(operation, L"sDataId");
        array.reset(SafeArrayCreateVector(VT_UI8, 0, 1));
        if (!array) return Fail(operation, L"pucData");
        return true;
    }

    static bool Fail(const wchar_t* operation, const wchar_t* what) {
        COBLOG(CVLOG_ERROR, L"%ls %ls allocation error", operation, what);
        return false;
    }
};

std::unique_ptr<NV::DataStore::DataCacheClient> Client(const wchar_t* operation) {
    std::unique_ptr<NV::DataStore::DataCacheClient> client(NV::DataStore::GetDataCacheClient());
    if (!client) COBLOG(CVLOG_ERROR, L"%ls new DataCacheClient failed!", operation);
    return client;
}

} // namespace

int64_t ReadDisplayNotificationDate(const CSecStr& serialNumber) {
    static const wchar_t kOperation[] = L"CVCardManagement::GetDisplayNotificationDate";
    DateRecord record;
    if (!record.Allocate(serialNumber, kOperation)) return -1;
    std::unique_ptr<NV::DataStore::DataCacheClient> client = Client(kOperation);
    if (!client) return -1;
    SAFEARRAY* array = record.array.release();
    HRESULT hr =
        client->GetData(record.storeId.get(), record.compartmentId.get(), record.dataId.get(), &array);
    record.array.reset(array);
    if (FAILED(hr)) {
        // A card that was never given a date is the usual case, not an error.
        COBLOG(hr == HRESULT_FROM_WIN32(ERROR_NOT_FOUND) ? CVLOG_INFO : CVLOG_ERROR,
               L"CVCardManagement::GetDisplayNotificationDate GetData failed with error = 0x%x", Low16(hr));
        return -1;
    }
    COBLOG(CVLOG_INFO, L"CVCardManagement::GetDisplayNotificationDate GetData returns hr = 0x%x", Low16(hr));
    VARTYPE vt = VT_EMPTY;
    if (!array || FAILED(SafeArrayGetVartype(array, &vt)) || vt != VT_UI8) {
        COBLOG(CVLOG_ERROR,
               L"CVCardManagement::GetDisplayNotificationDate SafeArrayGetElement failed with error = 0x%x",
               Low16(DISP_E_TYPEMISMATCH));
        return -1;
    }
    LONG index = 0;
    ULONGLONG value = 0;
    hr = SafeArrayGetElement(array, &index, &value);
    if (FAILED(hr)) {
        COBLOG(CVLOG_ERROR,
               L"CVCardManagement::GetDisplayNotificationDate SafeArrayGetElement failed with error = 0x%x",
               Low16(hr));
        return -1;
    }
    const int64_t date = static_cast<int64_t>(value);
    COBLOG(CVLOG_INFO, L"CVCardManagement::GetDisplayNotificationDate: DisplayNotificationDate value is %ls",
           LocalTimeText(date).c_str());
    return date;
}

void WriteDisplayNotificationDate(const CSecStr& serialNumber, int64_t date) {
    static const wchar_t kOperation[] = L"CVCardManagement::SetDisplayNotificationDate";
    DateRecord record;
    if (!record.Allocate(serialNumber, kOperation)) return;
    LONG index = 0;
    ULONGLONG value = static_cast<ULONGLONG>(date);
    HRESULT hr = SafeArrayPutElement(record.array.get(), &index, &value);
    if (FAILED(hr)) {
        COBLOG(CVLOG_ERROR,
               L"CVCardManagement::SetDisplayNotificationDate SafeArrayPutElement failed with error = 0x%x",
               Low16(hr));
        return;
    }
    std::unique_ptr<NV::DataStore::DataCacheClient> client = Client(kOperation);
    if (!client) return;
    hr = client->SetData(record.storeId.get(), record.compartmentId.get(), record.dataId.get(),
                         record.array.get());
    if (FAILED(hr))
        COBLOG(CVLOG_ERROR, L"CVCardManagement::SetDisplayNotificationDate SetData failed with error = 0x%x",
               Low16(hr));
    else
        COBLOG(CVLOG_INFO, L"CVCardManagement::SetDisplayNotificationDate SetData returns hr = 0x%x",
               Low16(hr));
}
