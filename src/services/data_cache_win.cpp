// The data cache's records as REG_BINARY values: a small header (format, element type, lower
// bound, element count) followed by the elements as they lie in the SAFEARRAY.
#include "services/data_cache_win.h"

#include <cstring>
#include <new>
#include <string>
#include <vector>

namespace {

const wchar_t kCacheRoot[] = L"Software\\Lumetra\\Corvana\\DataCache";
constexpr uint32_t kFormat = 0x31434443; // "CDC1"

#pragma pack(push, 1)
struct RecordHeader {
    uint32_t format;
    uint16_t elementType;
    uint16_t reserved;
    int32_t lowerBound;
    uint32_t count;
};
#pragma pack(pop)

// Element sizes of the types a record may hold; 0 for the others.
ULONG FixedElementSize(VARTYPE vt) {
    switch (vt) {
    case VT_I1:
    case VT_UI1:
        return 1;
    case VT_I2:
    case VT_UI2:
    case VT_BOOL:
        return 2;
    case VT_I4:
    case VT_UI4:
    case VT_INT:
    case VT_UINT:
    case VT_R4:
    case VT_ERROR:
        return 4;
    case VT_I8:
    case VT_UI8:
    case VT_R8:
    case VT_DATE:
    case VT_CY:
        return 8;
    default:
        return 0;
    }
}

bool ValidId(BSTR id) {
    return id && *id && !wcschr(id, L'\\');
}

// The key of a compartment, relative to HKEY_CURRENT_USER.
std::wstring CompartmentKey(BSTR storeId, BSTR compartmentId) {
    return std::wstring(kCacheRoot) + L"\\" + storeId + L"\\" + compartmentId;
}

HRESULT FromWin32(LSTATUS status) {
    return status == ERROR_FILE_NOT_FOUND ? HRESULT_FROM_WIN32(ERROR_NOT_FOUND) : HRESULT_FROM_WIN32(status);
}

// Copies the elements into array, or into a new array when it has another shape.
HRESULT FillArray(const RecordHeader& header, const BYTE* elements, SAFEARRAY** data) {
    SAFEARRAY* target = *data;
    VARTYPE vt = VT_EMPTY;
    if (target && (SafeArrayGetDim(target) != 1 || FAILED(SafeArrayGetVartype(target, &vt)) ||
                   vt != header.elementType || target->rgsabound[0].cElements != header.count ||
                   target->rgsabound[0].lLbound != header.lowerBound)) {
        SafeArrayDestroy(target);
        *data = target = nullptr;
    }
    if (!target) {
        SAFEARRAYBOUND bound = {header.count, header.lowerBound};
        target = SafeArrayCreate(header.elementType, 1, &bound);
        if (!target) return E_OUTOFMEMORY;
        *data = target;
    }
    void* raw = nullptr;
    HRESULT hr = SafeArrayAccessData(target, &raw);
    if (FAILED(hr)) return hr;
    if (header.count) memcpy(raw, elements, size_t(header.count) * FixedElementSize(header.elementType));
    SafeArrayUnaccessData(target);
    return S_OK;
}

} // namespace

namespace NV {
namespace DataStore {

HRESULT DataCacheClient::GetData(BSTR storeId, BSTR compartmentId, BSTR dataId, SAFEARRAY** data) {
    if (!ValidId(storeId) || !ValidId(compartmentId) || !ValidId(dataId) || !data) return E_INVALIDARG;
    try {
        const std::wstring key = CompartmentKey(storeId, compartmentId);
        DWORD type = 0, size = 0;
        LSTATUS status =
            RegGetValueW(HKEY_CURRENT_USER, key.c_str(), dataId, RRF_RT_REG_BINARY, &type, nullptr, &size);
        if (status != ERROR_SUCCESS) return FromWin32(status);
        std::vector<BYTE> record(size);
        status = RegGetValueW(HKEY_CURRENT_USER, key.c_str(), dataId, RRF_RT_REG_BINARY, &type, record.data(),
                              &size);
        if (status != ERROR_SUCCESS) return FromWin32(status);
        RecordHeader header;
        if (size < sizeof header) return HRESULT_FROM_WIN32(ERROR_INVALID_DATA);
        memcpy(&header, record.data(), sizeof header);
        const ULONG elementSize = FixedElementSize(header.elementType);
        if (header.format != kFormat || elementSize == 0 ||
            uint64_t(size) - sizeof header != uint64_t(header.count) * elementSize)
            return HRESULT_FROM_WIN32(ERROR_INVALID_DATA);
        return FillArray(header, record.data() + sizeof header, data);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT DataCacheClient::SetData(BSTR storeId, BSTR compartmentId, BSTR dataId, SAFEARRAY* data) {
    if (!ValidId(storeId) || !ValidId(compartmentId) || !ValidId(dataId) || !data) return E_INVALIDARG;
    if (SafeArrayGetDim(data) != 1) return E_INVALIDARG;
    VARTYPE vt = VT_EMPTY;
    HRESULT hr = SafeArrayGetVartype(data, &vt);
    if (FAILED(hr)) return hr;
    const ULONG elementSize = FixedElementSize(vt);
    if (elementSize == 0 || SafeArrayGetElemsize(data) != elementSize) return DISP_E_BADVARTYPE;
    try {
        RecordHeader header = {kFormat, vt, 0, data->rgsabound[0].lLbound, data->rgsabound[0].cElements};
        const size_t bytes = size_t(header.count) * elementSize;
        if (bytes > 0x100000) return E_INVALIDARG; // the registry is no place for bulk data
        std::vector<BYTE> record(sizeof header + bytes);
        memcpy(record.data(), &header, sizeof header);
        void* raw = nullptr;
        hr = SafeArrayAccessData(data, &raw);
        if (FAILED(hr)) return hr;
        if (bytes) memcpy(record.data() + sizeof header, raw, bytes);
        SafeArrayUnaccessData(data);
        const std::wstring key = CompartmentKey(storeId, compartmentId);
        const LSTATUS status = RegSetKeyValueW(HKEY_CURRENT_USER, key.c_str(), dataId, REG_BINARY,
                                               record.data(), static_cast<DWORD>(record.size()));
        return status == ERROR_SUCCESS ? S_OK : HRESULT_FROM_WIN32(status);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

DataCacheClient::~DataCacheClient() = default;

DataCacheClient* GetDataCacheClient() {
    return new (std::nothrow) DataCacheClient;
}

} // namespace DataStore
} // namespace NV
