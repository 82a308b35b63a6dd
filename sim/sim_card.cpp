#include "sim_card.h"

#include "dialogs/pinchange/pin_rules.h"
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
    // The host reads this as "no challenge/response here" and asks for the static code instead.
    if (!m_profile.staticCode.Empty())
        Fail(SMMW_E_NOT_SUPPORTED, L"The PIN is unblocked with a static code, not a challenge");
    std::vector<uint8_t> challenge(kChallengeBytes);
    crypto.Random(challenge.data(), challenge.size());
    m_challenge = SecureBytes(challenge);
    m_challengePending = true;
    return challenge;
}

void Card::RequireAcceptablePin(const wchar_t* newPin, const CSecStr& pin) const {
    const PinProfile& rules = m_profile.pin;
    const uint32_t length = static_cast<uint32_t>(pin.GetLength());
    if (!newPin || length < rules.minLength || length > rules.maxLength)
        Fail(SMMW_E_INVALID_PARAMETER, L"The new PIN's length is outside the card's limits");
    // PIV and CAC applications store the PIN as digits.
    const bool numeric = m_profile.type == CardType::Piv || m_profile.type == CardType::Cac;
    if (numeric && pinrules::IsAlphaPinWeak(pin))
        Fail(SMMW_E_INVALID_PARAMETER, L"The new PIN must hold digits only");
    if (rules.weakCheck && pinrules::IsPinWeak(pin))
        Fail(SMMW_E_INVALID_PARAMETER, L"The new PIN is weak (repeated or evenly stepping characters)");
}

const wchar_t* Card::CheckChallengeResponse(ICrypto& crypto, const std::vector<uint8_t>& response) {
    // A challenge answers one attempt, right or wrong: no guessing against the same one.
    const bool pending = m_challengePending;
    SecureBytes challenge = std::move(m_challenge);
    m_challenge.Clear();
    m_challengePending = false;
    if (!pending) return L"No unblock challenge was requested";

    uint8_t expected[kChallengeBytes] = {};
    bool right = false;
    if (challenge.Size() == kChallengeBytes && response.size() == kChallengeBytes) {
        if (!crypto.Encrypt3DesBlock(m_profile.adminKey.Bytes(), challenge.Bytes().data(), expected))
            Fail(SMMW_E_INTERNAL, L"The cipher failed");
        right = SameBytes(expected, response.data(), kChallengeBytes);
        SecureWipe(expected, sizeof expected);
    }
    return right ? nullptr : L"The response does not answer the challenge";
}

const wchar_t* Card::CheckStaticCode(const std::vector<uint8_t>& response) const {
    const SecureBytes& code = m_profile.staticCode;
    const bool right =
        response.size() == code.Size() && SameBytes(code.Bytes().data(), response.data(), code.Size());
    return right ? nullptr : L"The response is not the card's unlock code";
}

void Card::Unblock(ICrypto& crypto, const std::vector<uint8_t>& response, const wchar_t* newPin,
                   uint32_t flags) {
    RequireUnblockRight();
    if (flags != 0) Fail(SMMW_E_INVALID_PARAMETER, L"Unblock takes no flags");
    // The new PIN is checked before the response, as the host does before it talks to the card:
    // a PIN the card refuses costs no try and keeps the challenge.
    CSecStr pin(newPin);
    RequireAcceptablePin(newPin, pin);

    const wchar_t* wrong =
        m_profile.staticCode.Empty() ? CheckChallengeResponse(crypto, response) : CheckStaticCode(response);
    PinProfile& state = m_profile.pin;
    if (wrong) {
        if (state.triesLeft > 0) --state.triesLeft;
        Fail(SMMW_E_WRONG_CODE, wrong);
    }
    state.value = pin;
    state.triesLeft = state.maxTries;
}

bool Card::PinEquals(const wchar_t* pin) const {
    return pin && m_profile.pin.value.Compare(pin) == 0;
}

Card::Verification Card::VerifyPin(const wchar_t* pin) {
    PinProfile& state = m_profile.pin;
    if (state.triesLeft == 0) return Verification::Blocked;
    if (!PinEquals(pin)) {
        --state.triesLeft;
        return Verification::WrongPin;
    }
    state.triesLeft = state.maxTries;
    return Verification::Verified;
}

} // namespace sim
