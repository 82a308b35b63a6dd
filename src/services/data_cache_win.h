// The shared data cache: small typed records that outlive the process, addressed by
// (store id, compartment id, data id). This build keeps them per user in the registry under
// HKCU\Software\Lumetra\Corvana\DataCache\<store id>\<compartment id>, value <data id>.
#pragma once
#include <windows.h>
#include <oleauto.h>

namespace NV {
namespace DataStore {

class DataCacheClient {
  public:
    // *data receives a one-dimensional SAFEARRAY holding the record (the caller destroys it).
    // An array already in *data is filled in place when its type and size match the record,
    // otherwise destroyed and replaced. S_OK; HRESULT_FROM_WIN32(ERROR_NOT_FOUND) for a missing
    // record; E_INVALIDARG for null or empty ids, ids containing '\\', or a null data pointer.
    virtual HRESULT GetData(BSTR storeId, BSTR compartmentId, BSTR dataId, SAFEARRAY** data);
    // Stores a one-dimensional SAFEARRAY of fixed-size elements (integers, reals, VT_BOOL,
    // VT_DATE, VT_CY, VT_ERROR), replacing any earlier record; DISP_E_BADVARTYPE for other types.
    virtual HRESULT SetData(BSTR storeId, BSTR compartmentId, BSTR dataId, SAFEARRAY* data);
    virtual ~DataCacheClient();
};

// A new client, or null when out of memory; release it with delete.
DataCacheClient* GetDataCacheClient();

} // namespace DataStore
} // namespace NV
