#include "card/cv_connection.h"

#include "card/card_log.h"
#include "card/card_result.h"

using NV::SMMW::Filter;
using NV::SMMW::ICredential;

namespace {

// A key container names the PKI credential whose key it holds by this attribute, which both
// carry with the same value.
// TODO(smmw.h): move to CredentialAttribute once the interface names it.
constexpr int32_t kAttributeContainerIndex = 12;

} // namespace

struct CVConnection::CreateKind {
    int32_t type;
    std::vector<std::wstring> accessRights;
    const wchar_t* refreshAction;
    const wchar_t* notConnected;
    const wchar_t* sizeLine; // null: the size is not logged
    const wchar_t* refreshFailed;
    const wchar_t* createFailed;
    const wchar_t* createdNothing;
    const wchar_t* importFailed;
};

CVConnection::CVConnection() {
    COBLOG(CVLOG_DETAIL, L"CVConnection::CVConnection : this=%#x", LogPtr(this));
    COBLOG(CVLOG_ENTRY, L"CVConnection::CVConnection");
}

NV::SMMW::IPinCredential* CVConnection::GetUserPinCredential() {
    COBLOG(CVLOG_ENTRY, L"CVConnection::GetUserPinCredential");
    if (!m_pContext) {
        COBLOG(CVLOG_ERROR, L"CVConnection::GetUserPinCredential Not connected: no PIN credential");
        return nullptr;
    }
    std::vector<ICredential*> found;
    const uint32_t rc = CallModule(
        CVLOG_ERROR, L"CVConnection::GetUserPinCredential : Error while trying to find PIN credential: %ls.",
        [&] {
            Filter primary;
            primary.AddCredentialType(NV::SMMW::CREDENTIAL_PIN);
            primary.AddCredentialAttribute(NV::SMMW::ATTRIBUTE_PRIMARY_PIN, 1);
            found = m_pContext->ListCredentials(primary);
            if (!found.empty()) return;
            Filter global;
            global.AddCredentialType(NV::SMMW::CREDENTIAL_PIN);
            global.AddCredentialAttribute(NV::SMMW::ATTRIBUTE_GLOBAL_PRIMARY_PIN, 1);
            found = m_pContext->ListCredentials(global);
        });
    if (rc != CV_OBJ_API_OK || found.empty()) return nullptr;
    if (found.size() > 1) {
        // Which of them the user means cannot be known: better no PIN than the wrong one.
        COBLOG(CVLOG_ERROR, L"CVConnection::GetUserPinCredential Only one primary PIN is not supported !");
        return nullptr;
    }
    return found[0] ? found[0]->AsPinCredential() : nullptr;
}

ICredential* CVConnection::GetDataCredential(int32_t dataType) {
    COBLOG(CVLOG_ENTRY, L"CVConnection::GetDataCredential");
    if (!m_pContext) {
        COBLOG(CVLOG_ERROR, L"CVConnection::GetDataCredential Not connected: no Data credential of type %d",
               dataType);
        return nullptr;
    }
    std::vector<ICredential*> found;
    const uint32_t rc = CallModule(
        CVLOG_ERROR, L"CVConnection::GetDataCredential : Error while trying to find Data credential: %ls.",
        [&] {
            Filter filter;
            filter.AddCredentialType(NV::SMMW::CREDENTIAL_DATA);
            filter.AddCredentialAttribute(NV::SMMW::ATTRIBUTE_DATA_TYPE, dataType);
            found = m_pContext->ListCredentials(filter);
        });
    if (rc != CV_OBJ_API_OK || found.empty()) return nullptr;
    if (found.size() > 1) {
        COBLOG(CVLOG_ERROR,
               L"CVConnection::GetDataCredential Only one Data credential of type %d is supported !",
               dataType);
        return nullptr;
    }
    return found[0];
}

ICredential* CVConnection::GetAssociatedKCCredential(ICredential* pPKICredential) {
    COBLOG(CVLOG_ENTRY, L"CVConnection::GetAssociatedKCCredential");
    if (!pPKICredential) {
        COBLOG(CVLOG_ERROR,
               L"CVConnection::GetAssociatedKCCredential Invalid Parameter: pPKICredential is NULL");
        return nullptr;
    }
    if (!m_pContext) {
        COBLOG(CVLOG_ERROR,
               L"CVConnection::GetAssociatedKCCredential Not connected: no associated KC credential");
        return nullptr;
    }
    std::vector<ICredential*> found;
    const uint32_t rc = CallModule(
        CVLOG_ERROR,
        L"CVConnection::GetAssociatedKCCredential : Error while trying to find associated KC credential: %ls.",
        [&] {
            CVData container;
            pPKICredential->GetProperty(kAttributeContainerIndex, container);
            Filter filter;
            filter.AddCredentialType(NV::SMMW::CREDENTIAL_KEY_CONTAINER);
            filter.AddCredentialAttribute(kAttributeContainerIndex, container.AsInteger());
            found = m_pContext->ListCredentials(filter);
        });
    if (rc != CV_OBJ_API_OK || found.empty()) return nullptr;
    if (found.size() > 1) {
        COBLOG(CVLOG_ERROR,
               L"CVConnection::GetAssociatedKCCredential Only one associated KC credential is supported !");
        return nullptr;
    }
    return found[0];
}

uint32_t CVConnection::ListByType(int32_t type, std::vector<ICredential*>* credentials,
                                  const wchar_t* errorFormat) {
    if (!credentials) return CV_OBJ_API_INVALID_PARAMETER;
    credentials->clear();
    if (!m_pContext) return CV_OBJ_API_FAILED;
    return CallModule(CVLOG_ERROR, errorFormat, [&] {
        Filter filter;
        filter.AddCredentialType(type);
        *credentials = m_pContext->ListCredentials(filter);
    });
}

uint32_t CVConnection::ListPKICredentials(std::vector<ICredential*>* credentials) {
    COBLOG(CVLOG_ENTRY, L"CVConnection::ListPKICredentials");
    const uint32_t ret =
        ListByType(NV::SMMW::CREDENTIAL_PKI, credentials,
                   L"CVConnection::ListPKICredentials : Error while trying to list PKI credentials: %ls.");
    COBLOG(CVLOG_EXIT, L"CVConnection::ListPKICredentials : ret=(%#x)", ret);
    return ret;
}

uint32_t CVConnection::ListDataCredentials(std::vector<ICredential*>* credentials) {
    COBLOG(CVLOG_ENTRY, L"CVConnection::ListDataCredentials");
    const uint32_t ret =
        ListByType(NV::SMMW::CREDENTIAL_DATA, credentials,
                   L"CVConnection::ListDataCredentials : Error while trying to list Data credentials: %ls.");
    COBLOG(CVLOG_EXIT, L"CVConnection::ListDataCredentials : ret=(%#x)", ret);
    return ret;
}

bool CVConnection::IsCardSupportImportCertificate() {
    COBLOG(CVLOG_ENTRY, L"CVConnection::IsCardSupportImportCertificate");
    if (!m_pContext) {
        COBLOG(CVLOG_ERROR, L"CVConnection::IsCardSupportImportCertificate Not connected");
        return false;
    }
    bool supported = false;
    CallModule(CVLOG_ERROR,
               L"CVConnection::IsCardSupportImportCertificate : Error while trying to find Capability: %ls.",
               [&] { supported = m_pContext->HasCapability(L"ImportCertificate"); });
    COBLOG(CVLOG_EXIT, L"CVConnection::IsCardSupportImportCertificate : ret=(%#x)", supported ? 1u : 0u);
    return supported;
}

uint32_t CVConnection::CreateCredential(const CreateKind& kind, const CVCredentialParams& params,
                                        ICredential** created) {
    if (created) *created = nullptr;
    if (!m_pContext) {
        COBLOG(CVLOG_ERROR, kind.notConnected);
        return CV_OBJ_API_FAILED;
    }
    if (kind.sizeLine) COBLOG(CVLOG_INFO, kind.sizeLine, params.keySizeBits);
    ICredential* credential = nullptr;
    uint32_t ret = CallModule(CVLOG_ERROR, kind.createFailed, [&] {
        NV::SMMW::CredentialParameters parameters;
        parameters.type = kind.type;
        parameters.properties = params.properties;
        credential = m_pContext->CreateCredential(parameters, kind.accessRights);
    });
    if (ret != CV_OBJ_API_OK) return ret;
    if (!credential) {
        COBLOG(CVLOG_ERROR, kind.createdNothing, CV_OBJ_API_FAILED);
        return CV_OBJ_API_FAILED;
    }
    ret = CallModule(CVLOG_ERROR, kind.importFailed, [&] {
        for (const auto& value : params.values)
            credential->SetProperty(value.first, value.second);
    });
    if (ret != CV_OBJ_API_OK) return ret;
    if (created) *created = credential;
    // Windows sees the card's keys and roots through these files; a stale one hides the new
    // credential from every application until the next refresh.
    return CallModule(CVLOG_ERROR, kind.refreshFailed, [&] {
        NV::SMMW::ICardContext* card = m_pContext->GetCard();
        if (card) card->RunAction(kind.refreshAction);
    });
}

uint32_t CVConnection::CreatePKICredential(const CVCredentialParams& params, ICredential** created) {
    COBLOG(CVLOG_ENTRY, L"CVConnection::CreatePKICredential");
    static const CreateKind kPki = {
        NV::SMMW::CREDENTIAL_PKI,
        {L"ActionGetValue", L"ActionImportKey", L"ActionSign"},
        L"ActionRefreshCmapFile",
        L"CVConnection::CreatePKICredential Context not initialized!",
        L"CVConnection::CreatePKICredential Size Key = 0x%02x bits",
        L"CVConnection::CreatePKICredential : Error while trying to refresh cmpa file.",
        L"CVConnection::CreatePKICredential : Error while trying to create PKI credential: %ls.",
        L"CVConnection::CreatePKICredential: CreateCredential failed with error code 0x%d",
        L"CVConnection::CreatePKICredential : Error while trying to import PKI credential: %ls.",
    };
    const uint32_t ret = CreateCredential(kPki, params, created);
    COBLOG(CVLOG_EXIT, L"CVConnection::CreatePKICredential : ret=(%#x)", ret);
    return ret;
}

uint32_t CVConnection::CreateDataCredential(const CVCredentialParams& params, ICredential** created) {
    COBLOG(CVLOG_ENTRY, L"CVConnection::CreateDataCredential");
    static const CreateKind kData = {
        NV::SMMW::CREDENTIAL_DATA,
        {L"ActionSetValue"},
        L"ActionRefreshMsRoots",
        L"CVConnection::CreateDataCredential Context not initialized!",
        nullptr,
        L"CVConnection::CreateDataCredential : Error while trying to refresh msroots.",
        L"CVConnection::CreateDataCredential : Error while trying to create Data credential: %ls.",
        L"CVConnection::CreateDataCredential: CreateCredential failed with error code 0x%d",
        L"CVConnection::CreateDataCredential : Error while trying to import Data credential: %ls.",
    };
    const uint32_t ret = CreateCredential(kData, params, created);
    COBLOG(CVLOG_EXIT, L"CVConnection::CreateDataCredential : ret=(%#x)", ret);
    return ret;
}

uint32_t CVConnection::UpdateCredential(ICredential* credential, int32_t propertyId, const CVData* value) {
    COBLOG(CVLOG_ENTRY, L"CVConnection::UpdateCredential");
    uint32_t ret;
    if (!m_pContext) {
        COBLOG(CVLOG_ERROR, L"CVConnection::UpdateCredential Context not initialized!");
        ret = CV_OBJ_API_FAILED;
    } else if (!credential || !value) {
        COBLOG(CVLOG_ERROR, L"CVConnection::UpdateCredential Invalid parameters!");
        ret = CV_OBJ_API_INVALID_PARAMETER;
    } else {
        ret =
            CallModule(CVLOG_ERROR,
                       L"CVConnection::UpdateCredential : Error while trying to import PKI credential: %ls.",
                       [&] { credential->SetProperty(propertyId, *value); });
    }
    COBLOG(CVLOG_EXIT, L"CVConnection::UpdateCredential : ret=(%#x)", ret);
    return ret;
}

// The transaction texts carry the UpdateCredential prefix: log readers search for them so.
uint32_t CVConnection::OnTransaction(const wchar_t* name, const wchar_t* notConnected, const wchar_t* errorFormat,
                                     void (NV::SMMW::IContext::*call)()) {
    COBLOG(CVLOG_ENTRY, L"%ls", name);
    if (!m_pContext) {
        COBLOG(CVLOG_ERROR, L"%ls", notConnected);
        return CV_OBJ_API_FAILED;
    }
    return CallModule(CVLOG_ERROR, errorFormat, [&] { (m_pContext->*call)(); });
}

uint32_t CVConnection::BeginTransaction() {
    return OnTransaction(L"CVConnection::BeginTransaction",
                         L"CVConnection::UpdateCredential Not connected: Impossible to start a transaction",
                         L"CVConnection::UpdateCredential : Error while trying to start a transaction: %ls.",
                         &NV::SMMW::IContext::BeginTransaction);
}

uint32_t CVConnection::EndTransaction() {
    return OnTransaction(L"CVConnection::EndTransaction",
                         L"CVConnection::UpdateCredential Not connected: Impossible to end a transaction",
                         L"CVConnection::UpdateCredential : Error while trying to end a transaction: %ls.",
                         &NV::SMMW::IContext::EndTransaction);
}

uint32_t CVConnection::ResetTransactionTimeout() {
    return OnTransaction(
        L"CVConnection::ResetTransactionTimeout",
        L"CVConnection::UpdateCredential Not connected: Impossible to reset the transaction timeout",
        L"CVConnection::UpdateCredential : Error while trying to reset the transaction timeout: %ls.",
        &NV::SMMW::IContext::ResetTransactionTimeout);
}
