// What one operation holds while it talks to a card: the reader's shared security-module
// context (see CVReader::Connect), and the searches and changes made through it. Always a local
// of one operation; it does not own the context.
#pragma once
#include <cstdint>
#include <utility>
#include <vector>

#include "cvpingui_export.h"
#include "smmw.h"

// A credential to create on the card: properties known at creation, then values written into
// the new credential (the key or the certificate, which the card receives as an import).
struct CVCredentialParams {
    uint32_t keySizeBits = 0;
    std::vector<std::pair<int32_t, CVData>> properties;
    std::vector<std::pair<int32_t, CVData>> values;
};

class CVPINGUI_CLASS CVConnection {
  public:
    CVConnection();
    ~CVConnection() = default;
    CVConnection(const CVConnection&) = delete;
    CVConnection& operator=(const CVConnection&) = delete;

    bool IsConnected() const { return m_pContext != nullptr; }
    NV::SMMW::IContext* GetContext() const { return m_pContext; }

    // The card's primary PIN (or, without one, its global primary PIN); null when there is none,
    // when there are several, or on failure.
    NV::SMMW::IPinCredential* GetUserPinCredential();
    // The one data credential of that type; null when none, several, or on failure.
    NV::SMMW::ICredential* GetDataCredential(int32_t dataType);
    // The key container that holds the key of a PKI credential; null when none or several.
    NV::SMMW::ICredential* GetAssociatedKCCredential(NV::SMMW::ICredential* pPKICredential);

    uint32_t ListPKICredentials(std::vector<NV::SMMW::ICredential*>* credentials);
    uint32_t ListDataCredentials(std::vector<NV::SMMW::ICredential*>* credentials);
    bool IsCardSupportImportCertificate();

    // created (optional) receives the new credential, owned by the context.
    uint32_t CreatePKICredential(const CVCredentialParams& params, NV::SMMW::ICredential** created = nullptr);
    uint32_t CreateDataCredential(const CVCredentialParams& params,
                                  NV::SMMW::ICredential** created = nullptr);
    uint32_t UpdateCredential(NV::SMMW::ICredential* credential, int32_t propertyId, const CVData* value);

    uint32_t BeginTransaction();
    uint32_t EndTransaction();
    uint32_t ResetTransactionTimeout();

  private:
    // One transaction call on the context, with its entry, not-connected and failure lines.
    uint32_t OnTransaction(const wchar_t* name, const wchar_t* notConnected, const wchar_t* errorFormat,
                           void (NV::SMMW::IContext::*call)());
    friend class CVReader;

    struct CreateKind; // what differs between creating a PKI and a data credential
    uint32_t ListByType(int32_t type, std::vector<NV::SMMW::ICredential*>* credentials,
                        const wchar_t* errorFormat);
    uint32_t CreateCredential(const CreateKind& kind, const CVCredentialParams& params,
                              NV::SMMW::ICredential** created);

    NV::SMMW::IContext* m_pContext = nullptr;
};
