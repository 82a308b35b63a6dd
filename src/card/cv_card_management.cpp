#include "card/cv_card_management.h"

#include "card/card_log.h"
#include "card/card_result.h"
#include "card/cv_card_properties.h"
#include "card/display_date_cache.h"
#include "card/hex_converter.h"
#include "card/local_time_text.h"
#include "services/settings.h"

#include <vector>

namespace {

// One operation's connection, given back when the operation ends.
class OperationConnection {
  public:
    OperationConnection(CVReader& reader, const wchar_t* operation) : m_reader(reader) {
        m_result = reader.Connect(m_connection);
        if (m_result != CV_OBJ_API_OK)
            COBLOG(CVLOG_ERROR, L"%ls : Unable to connect. Error is (%d)", operation, (int)m_result);
    }
    ~OperationConnection() {
        if (m_connection.IsConnected()) m_reader.Disconnect(m_connection);
    }
    OperationConnection(const OperationConnection&) = delete;
    OperationConnection& operator=(const OperationConnection&) = delete;

    uint32_t Result() const { return m_result; }
    bool Ok() const { return m_result == CV_OBJ_API_OK; }
    CVConnection& Connection() { return m_connection; }
    NV::SMMW::IPinCredential* UserPin() { return Ok() ? m_connection.GetUserPinCredential() : nullptr; }
    // Inside CallModule only: GetCard may throw.
    NV::SMMW::ICardContext* Card() {
        return Ok() && m_connection.GetContext() ? m_connection.GetContext()->GetCard() : nullptr;
    }

  private:
    CVReader& m_reader;
    CVConnection m_connection;
    uint32_t m_result;
};

// A property value that held a secret (the unlock code) is wiped before it is freed.
void WipeValue(CVData& value) {
    const std::vector<uint8_t>& bytes = value.AsBytes();
    if (!bytes.empty()) SecureWipe(const_cast<uint8_t*>(bytes.data()), bytes.size());
    value = CVData();
}

} // namespace

CVCardManagement::CVCardManagement(const CVReader& reader) : m_reader(reader) {
    COBLOG(CVLOG_DETAIL, L"CVCardManagement::CVCardManagement : this=%#x", LogPtr(this));
    COBLOG(CVLOG_ENTRY, L"CVCardManagement::CVCardManagement");
}

CVCardManagement::~CVCardManagement() {
    COBLOG(CVLOG_DETAIL, L"CVCardManagement::~CVCardManagement : this=%#x", LogPtr(this));
    COBLOG(CVLOG_EXIT, L"CVCardManagement::~CVCardManagement");
}

uint32_t CVCardManagement::GetUnlockChallenge(CSecStr* challenge) {
    COBLOG(CVLOG_ENTRY, L"CVCardManagement::GetUnlockChallenge");
    uint32_t ret = CV_OBJ_API_INVALID_PARAMETER;
    if (challenge) {
        challenge->Empty();
        OperationConnection op(m_reader, L"CVCardManagement::GetUnlockChallenge");
        ret = op.Result();
        if (NV::SMMW::IPinCredential* pin = op.UserPin())
            ret = CallModule(
                CVLOG_INFO,
                L"CVCardManagement::GetUnlockChallenge : Error while trying to retrieve unblock challenge: %ls.",
                [&] {
                    std::vector<uint8_t> bytes = pin->GetUnblockChallenge();
                    NV::Framework::CConverter::BinToHex(bytes, *challenge);
                    WipeBytes(bytes);
                });
    }
    COBLOG(CVLOG_EXIT, L"CVCardManagement::GetUnlockChallenge : ret=(%#x)", ret);
    return ret;
}

uint32_t CVCardManagement::UnlockPIN(const CSecStr& response, const CSecStr& newPin) {
    COBLOG(CVLOG_ENTRY, L"CVCardManagement::UnlockPIN");
    uint32_t ret = CV_OBJ_API_INVALID_PARAMETER;
    std::vector<uint8_t> responseBytes;
    bool parsed = false;
    try {
        parsed = NV::Framework::CConverter::HexToBin(response, responseBytes);
    } catch (...) {
        ret = CV_OBJ_API_NO_MEMORY;
    }
    if (parsed) {
        OperationConnection op(m_reader, L"CVCardManagement::UnlockPIN");
        ret = op.Result();
        if (NV::SMMW::IPinCredential* pin = op.UserPin())
            ret = CallModule(CVLOG_INFO,
                             L"CVCardManagement::UnlockPIN : Error while trying to unblock PIN: %ls.",
                             [&] { pin->Unblock(responseBytes, newPin.GetString(), 0); });
    }
    WipeBytes(responseBytes);
    COBLOG(CVLOG_EXIT, L"CVCardManagement::UnlockPIN : ret=(%#x)", ret);
    return ret;
}

bool CVCardManagement::IsWeakPINCheckActivated() {
    COBLOG(CVLOG_ENTRY, L"CVCardManagement::IsWeakPINCheckActivated");
    bool active = false;
    {
        OperationConnection op(m_reader, L"CVCardManagement::IsWeakPINCheckActivated");
        if (NV::SMMW::IPinCredential* pin = op.UserPin())
            CallModule(
                CVLOG_INFO,
                L"CVCardManagement::IsWeakPINCheckActivated : Error while trying to retrieve weak pin flag: %ls.",
                [&] {
                    CVData value;
                    pin->GetProperty(NV::SMMW::PROPERTY_PIN_WEAK_CHECK, value);
                    active = value.AsInteger() == 1;
                });
    }
    COBLOG(CVLOG_EXIT, L"CVCardManagement::IsWeakPINCheckActivated : ret=(%#x)", active ? 1u : 0u);
    return active;
}

bool CVCardManagement::IsAlphaPINCheckActivated() {
    COBLOG(CVLOG_ENTRY, L"CVCardManagement::IsAlphaPINCheckActivated");
    bool numericOnly = IsCACCard() || IsPIVCard();
    if (!numericOnly) {
        CVData value;
        int notFound = 0;
        numericOnly = GetSettingValue(L"Corvana.PINPolicies.PreventAlphaPIN", value, &notFound) == 0 &&
                      value.IsNumber() && value.AsInteger() == 1;
    }
    COBLOG(CVLOG_INFO, L"CVCardManagement::IsAlphaPINCheckActivated: bRet (numeric only) = 0x%x",
           numericOnly ? 1u : 0u);
    COBLOG(CVLOG_EXIT, L"CVCardManagement::IsAlphaPINCheckActivated : ret=(%#x)", numericOnly ? 1u : 0u);
    return numericOnly;
}

uint32_t CVCardManagement::ReadPinLength(int32_t propertyId, uint32_t* length, const wchar_t* name,
                                         const wchar_t* nullLine, const wchar_t* valueLine,
                                         const wchar_t* exitFormat, const wchar_t* errorFormat) {
    COBLOG(CVLOG_ENTRY, name);
    uint32_t ret = CV_OBJ_API_INVALID_PARAMETER;
    if (!length) {
        COBLOG(CVLOG_ERROR, nullLine);
    } else {
        COBLOG(CVLOG_DETAIL, valueLine, (int)*length);
        OperationConnection op(m_reader, name);
        ret = op.Result();
        if (NV::SMMW::IPinCredential* pin = op.UserPin())
            ret = CallModule(CVLOG_INFO, errorFormat, [&] {
                CVData value;
                pin->GetProperty(propertyId, value);
                *length = static_cast<uint8_t>(value.AsInteger());
            });
        COBLOG(CVLOG_DETAIL, valueLine, (int)*length);
    }
    COBLOG(CVLOG_EXIT, exitFormat, ret);
    return ret;
}

uint32_t CVCardManagement::GetMinPINLen(uint32_t* pnMinPINLen) {
    return ReadPinLength(
        NV::SMMW::PROPERTY_PIN_MIN_LENGTH, pnMinPINLen, L"CVCardManagement::GetMinPINLen",
        L"CVCardManagement::GetMinPINLen : pnMinPINLen=null pointer!",
        L"CVCardManagement::GetMinPINLen : *pnMinPINLen=%d", L"CVCardManagement::GetMinPINLen  : ret=(%#x)",
        L"CVCardManagement::GetMinPINLen : Error while trying to retrieve min pin len: %ls.");
}

uint32_t CVCardManagement::GetMaxPINLen(uint32_t* pnMaxPINLen) {
    return ReadPinLength(
        NV::SMMW::PROPERTY_PIN_MAX_LENGTH, pnMaxPINLen, L"CVCardManagement::GetMaxPINLen",
        L"CVCardManagement::GetMaxPINLen : pnMaxPINLen=null pointer!",
        L"CVCardManagement::GetMaxPINLen : *pnMaxPINLen=%d", L"CVCardManagement::GetMaxPINLen : ret=(%#x)",
        L"CVCardManagement::GetMaxPINLen : Error while trying to retrieve max pin len: %ls.");
}

uint32_t CVCardManagement::GetUnlockCode(CSecStr* unlockCode) {
    COBLOG(CVLOG_ENTRY, L"CVCardManagement::GetUnlockCode");
    uint32_t ret = CV_OBJ_API_INVALID_PARAMETER;
    if (unlockCode) {
        OperationConnection op(m_reader, L"CVCardManagement::GetUnlockCode");
        ret = op.Result();
        if (NV::SMMW::IPinCredential* pin = op.UserPin())
            ret = CallModule(
                CVLOG_INFO,
                L"CVCardManagement::GetUnlockCode : Error while trying to retrieve backup unlock code: %ls.",
                [&] {
                    CVData value;
                    pin->GetProperty(NV::SMMW::PROPERTY_PIN_UNLOCK_CODE, value);
                    if (value.GetType() == CVData::Type::Bytes)
                        NV::Framework::CConverter::BinToHex(value.AsBytes(), *unlockCode);
                    else
                        unlockCode->Empty();
                    WipeValue(value);
                });
    }
    COBLOG(CVLOG_EXIT, L"CVCardManagement::GetUnlockCode : ret=(%#x)", ret);
    return ret;
}

uint32_t CVCardManagement::RemoveUnlockCode() {
    COBLOG(CVLOG_ENTRY, L"CVCardManagement::RemoveUnlockCode()");
    uint32_t ret;
    {
        OperationConnection op(m_reader, L"CVCardManagement::RemoveUnlockCode");
        ret = op.Result();
        if (NV::SMMW::IPinCredential* pin = op.UserPin())
            ret = CallModule(
                CVLOG_INFO,
                L"CVCardManagement::RemoveUnlockCode : Error while trying to remove backup unlock code: %ls.",
                [&] { pin->SetProperty(NV::SMMW::PROPERTY_PIN_UNLOCK_CODE, CVData::FromBytes({})); });
    }
    COBLOG(CVLOG_EXIT, L"CVCardManagement::RemoveUnlockCode : ret=(%#x)", ret);
    return ret;
}

bool CVCardManagement::ReadCardFlag(int32_t propertyId, const wchar_t* entryName, const wchar_t* exitFormat,
                                    const wchar_t* errorFormat) {
    COBLOG(CVLOG_ENTRY, entryName);
    bool flag = false;
    {
        OperationConnection op(m_reader, entryName);
        if (op.Ok())
            CallModule(CVLOG_INFO, errorFormat, [&] {
                NV::SMMW::ICardContext* card = op.Card();
                if (!card) return;
                CVData value;
                card->GetProperty(propertyId, value);
                flag = value.AsInteger() != 0;
            });
    }
    COBLOG(CVLOG_EXIT, exitFormat, flag ? 1u : 0u);
    return flag;
}

bool CVCardManagement::IsCACCard() {
    return ReadCardFlag(NV::SMMW::PROPERTY_CARD_IS_CAC, L"CVCardManagement::IsCACCard()",
                        L"CVCardManagement::IsCACCard : ret=(%#x)",
                        L"CVCardManagement::IsCACCard : Error while trying to retrieve if card is cac, "
                        L"assume it is not: %ls.");
}

bool CVCardManagement::IsPIVCard() {
    return ReadCardFlag(NV::SMMW::PROPERTY_CARD_IS_PIV, L"CVCardManagement::IsPIVCard()",
                        L"CVCardManagement::IsPIVCard : ret=(%#x)",
                        L"CVCardManagement::IsPIVCard : Error while trying to retrieve if card is piv, "
                        L"assume it is not: %ls.");
}

bool CVCardManagement::IsUnlockAllowed() {
    COBLOG(CVLOG_ENTRY, L"CVCardManagement::IsUnlockAllowed()");
    bool allowed = true;
    {
        OperationConnection op(m_reader, L"CVCardManagement::IsUnlockAllowed");
        if (!op.Ok()) {
            allowed = false;
        } else if (NV::SMMW::IPinCredential* pin = op.UserPin()) {
            const uint32_t rc = CallModule(
                CVLOG_INFO,
                L"CVCardManagement::IsUnlockAllowed : Error while trying to retrieve unlock mode: %ls.", [&] {
                    NV::SMMW::CSMMWAccessControlRight* right = pin->GetAccessRight(L"ActionUnblock");
                    if (!right) {
                        COBLOG(
                            CVLOG_ERROR,
                            L"CVCardManagement::IsUnlockAllowed : Failed to retrieve Unblock access right");
                        allowed = false;
                    } else if (right->IsAuthenticable()) {
                        COBLOG(
                            CVLOG_INFO,
                            L"CVCardManagement::IsUnlockAllowed : Unblock ACL is authenticable, unlock is allowed");
                        allowed = true;
                    } else {
                        COBLOG(
                            CVLOG_INFO,
                            L"CVCardManagement::IsUnlockAllowed : Unblock ACL is not authenticable, unlock is not allowed");
                        allowed = false;
                    }
                });
            if (rc != CV_OBJ_API_OK) allowed = false;
        }
        // No PIN credential: nothing on the card forbids the unblock, so it stays offered.
    }
    COBLOG(CVLOG_EXIT, L"CVCardManagement::IsUnlockAllowed : ret=(%#x)", allowed ? 1u : 0u);
    return allowed;
}

// Connects and reads the serial number that keys the card's data-cache record; fn runs with it
// when both worked. Returns the connection's code, which the date operations log at exit.
template <class Fn>
uint32_t CVCardManagement::WithCardSerial(const wchar_t* operation, Fn&& fn) {
    OperationConnection op(m_reader, operation);
    if (!op.Ok()) return op.Result();
    CSecStr serial;
    const uint32_t rc = CVCardProperties(m_reader).GetSerialNumber(&serial);
    if (rc != CV_OBJ_API_OK)
        COBLOG(CVLOG_ERROR, L"%ls : Error (%d) in CVCardProperties::GetSerialNumber", operation, (int)rc);
    else
        fn(serial);
    return op.Result();
}

int64_t CVCardManagement::GetDisplayNotificationDate() {
    COBLOG(CVLOG_ENTRY, L"CVCardManagement::GetDisplayNotificationDate");
    int64_t date = -1;
    const uint32_t ret = WithCardSerial(L"CVCardManagement::GetDisplayNotificationDate",
                                        [&](const CSecStr& serial) { date = ReadDisplayNotificationDate(serial); });
    COBLOG(CVLOG_EXIT, L"CVCardManagement::GetDisplayNotificationDate : ret=(%#x)", ret);
    return date;
}

void CVCardManagement::SetDisplayNotificationDate(int64_t date) {
    COBLOG(CVLOG_ENTRY, L"CVCardManagement::SetDisplayNotificationDate");
    COBLOG(CVLOG_INFO,
           L"CVCardManagement::SetDisplayNotificationDate: Set the DisplayNotificationDate to %ls",
           LocalTimeText(date).c_str());
    const uint32_t ret = WithCardSerial(L"CVCardManagement::SetDisplayNotificationDate",
                                        [&](const CSecStr& serial) { WriteDisplayNotificationDate(serial, date); });
    COBLOG(CVLOG_EXIT, L"CVCardManagement::SetDisplayNotificationDate : ret=(%#x)", ret);
}

uint32_t CVCardManagement::GetTransactionTimeoutValue(uint32_t* punTimeout) {
    COBLOG(CVLOG_ENTRY, L"CVCardManagement::GetTransactionTimeoutValue");
    uint32_t ret = CV_OBJ_API_INVALID_PARAMETER;
    if (punTimeout) {
        *punTimeout = 0;
        OperationConnection op(m_reader, L"CVCardManagement::GetTransactionTimeoutValue");
        ret = op.Result();
        if (op.Ok()) {
            const uint32_t rc = CallModule(
                CVLOG_INFO,
                L"CVCardManagement::GetTransactionTimeoutValue : Error while trying to retrieve the transaction timeout, assume none: %ls.",
                [&] {
                    NV::SMMW::ICardContext* card = op.Card();
                    if (!card) return;
                    CVData value;
                    card->GetProperty(NV::SMMW::PROPERTY_TRANSACTION_TIMEOUT, value);
                    *punTimeout = static_cast<uint32_t>(value.AsInteger());
                    COBLOG(CVLOG_DETAIL, L"CVCardManagement::GetTransactionTimeoutValue : *punTimeout=%d",
                           (int)*punTimeout);
                });
            // A card that cannot tell its time-out has none as far as the keep-alive is concerned.
            if (rc != CV_OBJ_API_OK) *punTimeout = 0;
        }
    }
    COBLOG(CVLOG_EXIT, L"CVCardManagement::GetTransactionTimeoutValue  : ret=(%#x)", ret);
    return ret;
}
