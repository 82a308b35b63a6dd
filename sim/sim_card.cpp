#include "sim_card.h"

#include "sim_controller.h"
#include "sim_errors.h"

namespace sim {

using namespace NV::SMMW;

namespace {

const size_t kChallengeBytes = 8;

std::wstring Widen(const char* ascii) {
    return std::wstring(ascii, ascii + std::char_traits<char>::length(ascii));
}

// Compares without an early exit, as a card does.
bool SameBytes(const uint8_t* a, const uint8_t* b, size_t count) {
    uint8_t difference = 0;
    for (size_t i = 0; i < count; ++i)
        difference |= static_cast<uint8_t>(a[i] ^ b[i]);
    return difference == 0;
}

} // namespace

Card::Card(CardProfile profile) : m_profile(std::move(profile)), m_present(m_profile.inserted) {}

void Card::Remove() {
    m_present = false;
    // A challenge belongs to the card session that asked for it.
    m_challengePending = false;
    m_challenge.Clear();
}

void Card::Insert() {
    m_present = true;
    ++m_insertion;
}

void ThrowIfInjected(std::vector<FailureRule>& rules, const char* operation, int32_t property) {
    for (size_t i = 0; i < rules.size(); ++i) {
        const bool matches =
            operation ? rules[i].operation == operation : property >= 0 && rules[i].property == property;
        if (!matches) continue;
        const uint32_t code = rules[i].code;
        if (rules[i].times > 0 && --rules[i].times == 0) rules.erase(rules.begin() + static_cast<long>(i));
        Fail(code, L"Injected failure of " +
                       (operation ? Widen(operation) : L"property " + std::to_wstring(property)));
    }
}

void Card::CheckOperation(const char* operation) {
    ThrowIfInjected(m_profile.failures, operation, -1);
}

void Card::CheckProperty(const char* operation, int32_t id) {
    ThrowIfInjected(m_profile.failures, operation, -1);
    ThrowIfInjected(m_profile.failures, nullptr, id);
}

CVData Card::GetPinProperty(int32_t id) const {
    const PinProfile& pin = m_profile.pin;
    switch (id) {
    case PROPERTY_PIN_MIN_LENGTH:
        return CVData::FromByte(static_cast<uint8_t>(pin.minLength));
    case PROPERTY_PIN_MAX_LENGTH:
        return CVData::FromByte(static_cast<uint8_t>(pin.maxLength));
    case PROPERTY_PIN_WEAK_CHECK:
        return CVData::FromByte(pin.weakCheck ? 1 : 0);
    case PROPERTY_PIN_UNLOCK_CODE:
        // No code at all is "not a byte array", which the layer reads as an empty code.
        return m_profile.unlockCode.Empty() ? CVData() : CVData::FromBytes(m_profile.unlockCode.Bytes());
    case SIM_PROPERTY_TRIES_LEFT:
        return CVData::FromUnsigned(pin.triesLeft);
    case SIM_PROPERTY_MAX_TRIES:
        return CVData::FromUnsigned(pin.maxTries);
    default:
        Fail(SMMW_E_NOT_SUPPORTED, L"The PIN credential has no property " + std::to_wstring(id));
    }
}

void Card::SetPinProperty(int32_t id, const CVData& value) {
    if (id != PROPERTY_PIN_UNLOCK_CODE)
        Fail(SMMW_E_NOT_SUPPORTED,
             L"Property " + std::to_wstring(id) + L" of the PIN credential is read-only");
    if (value.GetType() != CVData::Type::Bytes)
        Fail(SMMW_E_INVALID_PARAMETER, L"The backup unlock code must be a byte array");
    m_profile.unlockCode = SecureBytes(value.AsBytes());
}

void Card::RequireUnblockRight() const {
    if (!m_profile.hasUnblockRight) Fail(SMMW_E_ACCESS_DENIED, L"The PIN has no unblock right");
    if (!m_profile.unblockAuthenticable)
        Fail(SMMW_E_ACCESS_DENIED, L"The PIN's unblock right cannot be satisfied by an authentication");
}

std::vector<uint8_t> Card::NewUnblockChallenge(ICrypto& crypto) {
    RequireUnblockRight();
    std::vector<uint8_t> challenge(kChallengeBytes);
    crypto.Random(challenge.data(), challenge.size());
    m_challenge = SecureBytes(challenge);
    m_challengePending = true;
    return challenge;
}

void Card::Unblock(ICrypto& crypto, const std::vector<uint8_t>& response, const wchar_t* newPin,
                   uint32_t flags) {
    RequireUnblockRight();
    if (flags != 0) Fail(SMMW_E_INVALID_PARAMETER, L"Unblock takes no flags");
    // The new PIN is checked before the response, as the host does before it talks to the card:
    // a mistyped PIN costs no try and keeps the challenge.
    CSecStr pin(newPin);
    PinProfile& state = m_profile.pin;
    const uint32_t length = static_cast<uint32_t>(pin.GetLength());
    if (!newPin || length < state.minLength || length > state.maxLength)
        Fail(SMMW_E_INVALID_PARAMETER, L"The new PIN's length is outside the card's limits");

    // A challenge answers one attempt, right or wrong: no guessing against the same one.
    const bool pending = m_challengePending;
    SecureBytes challenge = std::move(m_challenge);
    m_challenge.Clear();
    m_challengePending = false;

    uint8_t expected[kChallengeBytes] = {};
    bool right = false;
    if (pending && challenge.Size() == kChallengeBytes && response.size() == kChallengeBytes) {
        if (!crypto.Encrypt3DesBlock(m_profile.adminKey.Bytes(), challenge.Bytes().data(), expected))
            Fail(SMMW_E_INTERNAL, L"The cipher failed");
        right = SameBytes(expected, response.data(), kChallengeBytes);
        SecureWipe(expected, sizeof expected);
    }
    if (!right) {
        if (state.triesLeft > 0) --state.triesLeft;
        Fail(SMMW_E_WRONG_CODE,
             pending ? L"The response does not answer the challenge" : L"No unblock challenge was requested");
    }
    state.value = pin;
    state.triesLeft = state.maxTries;
}

bool Card::PinEquals(const wchar_t* pin) const {
    return pin && m_profile.pin.value.Compare(pin) == 0;
}

} // namespace sim
