#include "sim_context.h"

#include <algorithm>
#include <cwchar>

#include "sim_errors.h"

namespace sim {

using namespace NV::SMMW;

namespace {

using Lock = std::lock_guard<std::mutex>;

bool IsKnownAction(const wchar_t* action) {
    return wcscmp(action, L"ActionRefreshCmapFile") == 0 || wcscmp(action, L"ActionRefreshMsRoots") == 0;
}

// A filter names types (none: all) and attribute values that must all be present and equal.
template <class AttributeOf> bool Matches(const Filter& filter, int32_t type, AttributeOf attributeOf) {
    const auto& types = filter.Types();
    if (!types.empty() && std::find(types.begin(), types.end(), type) == types.end()) return false;
    for (const auto& wanted : filter.Attributes()) {
        int64_t value = 0;
        if (!attributeOf(wanted.first, value) || value != wanted.second) return false;
    }
    return true;
}

} // namespace

// ---- card context

void SimCardContext::GetProperty(int32_t id, CVData& value) {
    Guarded([&] {
        Lock lock(m_context.State().mutex);
        const CardProfile& card = m_context.UseProperty("GetProperty", id).Profile();
        switch (id) {
        case PROPERTY_CARD_IDENTIFIER:
            value = CVData::FromBytes(card.serial);
            break;
        case PROPERTY_CARD_IS_CAC:
            value = CVData::FromByte(card.type == CardType::Cac ? 1 : 0);
            break;
        case PROPERTY_CARD_IS_PIV:
            value = CVData::FromByte(card.type == CardType::Piv ? 1 : 0);
            break;
        case PROPERTY_TRANSACTION_TIMEOUT:
            value = CVData::FromUnsigned(card.transactionTimeout);
            break;
        default:
            Fail(SMMW_E_NOT_SUPPORTED, L"The card has no property " + std::to_wstring(id));
        }
    });
}

void SimCardContext::SetProperty(int32_t id, const CVData&) {
    Guarded([&] {
        Lock lock(m_context.State().mutex);
        m_context.UseProperty("SetProperty", id);
        Fail(SMMW_E_NOT_SUPPORTED, L"Property " + std::to_wstring(id) + L" of the card is read-only");
    });
}

void SimCardContext::RunAction(const wchar_t* action) {
    Guarded([&] {
        Lock lock(m_context.State().mutex);
        m_context.Use("RunAction");
        if (!action) Fail(SMMW_E_INVALID_PARAMETER, L"No action named");
        if (!IsKnownAction(action))
            Fail(SMMW_E_NOT_SUPPORTED, std::wstring(L"Unknown card action ") + action);
    });
}

// ---- user PIN credential

SimPinCredential::SimPinCredential(SimContext& context) : m_context(context) {}

void SimPinCredential::GetProperty(int32_t id, CVData& value) {
    Guarded([&] {
        Lock lock(m_context.State().mutex);
        value = m_context.UseProperty("GetProperty", id).GetPinProperty(id);
    });
}

void SimPinCredential::SetProperty(int32_t id, const CVData& value) {
    Guarded([&] {
        Lock lock(m_context.State().mutex);
        m_context.UseProperty("SetProperty", id).SetPinProperty(id, value);
    });
}

CSMMWAccessControlRight* SimPinCredential::GetAccessRight(const wchar_t* action) {
    return Guarded([&]() -> CSMMWAccessControlRight* {
        Lock lock(m_context.State().mutex);
        const CardProfile& card = m_context.Use("GetAccessRight").Profile();
        if (!action || wcscmp(action, L"ActionUnblock") != 0 || !card.hasUnblockRight) return nullptr;
        if (!m_unblockRight) m_unblockRight.reset(new SimAccessRight(card.unblockAuthenticable));
        return m_unblockRight.get();
    });
}

std::vector<uint8_t> SimPinCredential::GetUnblockChallenge() {
    return Guarded([&] {
        Lock lock(m_context.State().mutex);
        return m_context.Use("GetUnblockChallenge").NewUnblockChallenge(m_context.State().crypto);
    });
}

void SimPinCredential::Unblock(const std::vector<uint8_t>& response, const wchar_t* newPin, uint32_t flags) {
    Guarded([&] {
        Lock lock(m_context.State().mutex);
        m_context.Use("Unblock").Unblock(m_context.State().crypto, response, newPin, flags);
    });
}

// ---- credentials created on the card

SimCreatedCredential::SimCreatedCredential(SimContext& context, std::shared_ptr<CreatedCredential> record)
    : m_context(context), m_record(std::move(record)) {}

void SimCreatedCredential::GetProperty(int32_t id, CVData& value) {
    Guarded([&] {
        Lock lock(m_context.State().mutex);
        m_context.UseProperty("GetProperty", id);
        for (const auto& property : m_record->properties)
            if (property.first == id) {
                value = property.second;
                return;
            }
        Fail(SMMW_E_NOT_SUPPORTED, L"The credential has no property " + std::to_wstring(id));
    });
}

void SimCreatedCredential::SetProperty(int32_t id, const CVData& value) {
    Guarded([&] {
        Lock lock(m_context.State().mutex);
        m_context.UseProperty("SetProperty", id);
        for (auto& property : m_record->properties)
            if (property.first == id) {
                property.second = value;
                return;
            }
        m_record->properties.emplace_back(id, value);
    });
}

CSMMWAccessControlRight* SimCreatedCredential::GetAccessRight(const wchar_t* action) {
    return Guarded([&]() -> CSMMWAccessControlRight* {
        Lock lock(m_context.State().mutex);
        m_context.Use("GetAccessRight");
        if (!action) return nullptr;
        const auto& rights = m_record->accessRights;
        return std::find(rights.begin(), rights.end(), action) != rights.end() ? &m_right : nullptr;
    });
}

// ---- context

SimContext::SimContext(SimController::State& state, SimReader& reader)
    : m_state(state), m_card(reader.card), m_insertion(m_card->Insertion()) {
    for (uint32_t i = 0; i < m_card->Profile().pin.primaryCount; ++i)
        m_pins.emplace_back(new SimPinCredential(*this));
}

void SimContext::RequireSameCard() const {
    if (!m_card->Present() || m_card->Insertion() != m_insertion)
        Fail(SMMW_E_CARD_REMOVED, L"The card was removed");
}

Card& SimContext::Use(const char* operation) {
    RequireSameCard();
    m_card->CheckOperation(operation);
    return *m_card;
}

Card& SimContext::UseProperty(const char* operation, int32_t id) {
    RequireSameCard();
    m_card->CheckProperty(operation, id);
    return *m_card;
}

ICardContext* SimContext::GetCard() {
    return Guarded([&]() -> ICardContext* {
        Lock lock(m_state.mutex);
        Use("GetCard");
        return &m_cardContext;
    });
}

SimCreatedCredential& SimContext::WrapperOf(const std::shared_ptr<CreatedCredential>& record) {
    for (auto& wrapper : m_created)
        if (wrapper->Record() == record) return *wrapper;
    m_created.emplace_back(new SimCreatedCredential(*this, record));
    return *m_created.back();
}

std::vector<ICredential*> SimContext::ListCredentials(const Filter& filter) {
    return Guarded([&] {
        Lock lock(m_state.mutex);
        Card& card = Use("ListCredentials");
        std::vector<ICredential*> found;
        // The card's PINs are its primary PINs; none is shared between applications.
        auto pinAttribute = [](int32_t id, int64_t& value) {
            if (id == ATTRIBUTE_PRIMARY_PIN)
                value = 1;
            else if (id == ATTRIBUTE_GLOBAL_PRIMARY_PIN)
                value = 0;
            else
                return false;
            return true;
        };
        if (Matches(filter, CREDENTIAL_PIN, pinAttribute))
            for (auto& pin : m_pins)
                found.push_back(pin.get());
        for (const auto& record : card.Created()) {
            auto attribute = [&](int32_t id, int64_t& value) {
                for (const auto& property : record->properties)
                    if (property.first == id && property.second.IsNumber()) {
                        value = property.second.AsInteger();
                        return true;
                    }
                return false;
            };
            if (Matches(filter, record->type, attribute)) found.push_back(&WrapperOf(record));
        }
        return found;
    });
}

ICredential* SimContext::CreateCredential(const CredentialParameters& parameters,
                                          const std::vector<std::wstring>& accessRights) {
    return Guarded([&]() -> ICredential* {
        Lock lock(m_state.mutex);
        Card& card = Use("CreateCredential");
        const int32_t type = parameters.type;
        if (type != CREDENTIAL_PKI && type != CREDENTIAL_KEY_CONTAINER && type != CREDENTIAL_DATA)
            Fail(SMMW_E_INVALID_PARAMETER,
                 L"Credentials of type " + std::to_wstring(type) + L" cannot be created");
        auto record = std::make_shared<CreatedCredential>();
        record->type = type;
        record->properties = parameters.properties;
        record->accessRights = accessRights;
        card.Created().push_back(record);
        return &WrapperOf(record);
    });
}

bool SimContext::HasCapability(const wchar_t* capability) {
    return Guarded([&] {
        Lock lock(m_state.mutex);
        const auto& capabilities = Use("HasCapability").Profile().capabilities;
        return capability &&
               std::find(capabilities.begin(), capabilities.end(), capability) != capabilities.end();
    });
}

// A transaction lapses when neither its start nor a reset is more recent than the card's
// time-out; other operations do not keep it alive (the caller resets it on a timer).
bool SimContext::Lapsed() const {
    const uint32_t timeout = m_card->Profile().transactionTimeout;
    return m_inTransaction && timeout > 0 &&
           m_state.Now() - m_transactionStart > std::chrono::seconds(timeout);
}

void SimContext::BeginTransaction() {
    Guarded([&] {
        Lock lock(m_state.mutex);
        Use("BeginTransaction");
        m_inTransaction = true;
        m_transactionStart = m_state.Now();
    });
}

void SimContext::EndTransaction() {
    Guarded([&] {
        Lock lock(m_state.mutex);
        Use("EndTransaction");
        const bool lapsed = Lapsed();
        m_inTransaction = false;
        if (lapsed) Fail(SMMW_E_TIMEOUT, L"The transaction had timed out");
    });
}

void SimContext::ResetTransactionTimeout() {
    Guarded([&] {
        Lock lock(m_state.mutex);
        Use("ResetTransactionTimeout");
        if (!m_inTransaction) Fail(SMMW_E_INVALID_PARAMETER, L"No transaction is open");
        if (Lapsed()) {
            m_inTransaction = false;
            Fail(SMMW_E_TIMEOUT, L"The transaction had timed out");
        }
        m_transactionStart = m_state.Now();
    });
}

} // namespace sim
