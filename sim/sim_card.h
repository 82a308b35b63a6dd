// One simulated card: its PIN state, the unblock protocol and the failures a profile injects.
// Not locked here: every caller holds the controller's state mutex.
#pragma once
#include <cstdint>
#include <memory>
#include <vector>

#include "profile.h"
#include "secure_bytes.h"
#include "services/cvdata.h"

namespace sim {

class ICrypto;

// A credential created through IContext::CreateCredential; it stays on the card.
struct CreatedCredential {
    int32_t type = 0;
    std::vector<std::pair<int32_t, CVData>> properties;
    std::vector<std::wstring> accessRights;
};

// Throws the first failure of `rules` injected for the operation (or, with a null operation, for
// the property) and counts it; does nothing when none is.
void ThrowIfInjected(std::vector<FailureRule>& rules, const char* operation, int32_t property);

class Card {
  public:
    explicit Card(CardProfile profile);

    const CardProfile& Profile() const { return m_profile; }
    bool Present() const { return m_present; }
    // Changes with every insertion, so that a context opened before a removal stays invalid.
    uint64_t Insertion() const { return m_insertion; }
    void Remove();
    void Insert();

    // Throws the injected failure for the operation (or the property), if any is left.
    void CheckOperation(const char* operation);
    void CheckProperty(const char* operation, int32_t id);

    CVData GetPinProperty(int32_t id) const;
    void SetPinProperty(int32_t id, const CVData& value);

    std::vector<uint8_t> NewUnblockChallenge(ICrypto& crypto);
    void Unblock(ICrypto& crypto, const std::vector<uint8_t>& response, const wchar_t* newPin,
                 uint32_t flags);

    bool PinEquals(const wchar_t* pin) const;
    enum class Verification { Verified, WrongPin, Blocked };
    // As a security module verifies a PIN: a right one restores the tries, a wrong one uses one
    // up, and none is accepted once they are used up.
    Verification VerifyPin(const wchar_t* pin);

    std::vector<std::shared_ptr<CreatedCredential>>& Created() { return m_created; }
    std::vector<FailureRule>& Failures() { return m_profile.failures; }

  private:
    void RequireUnblockRight() const;
    void RequireAcceptablePin(const wchar_t* newPin, const CSecStr& pin) const;
    // Null when the response unblocks, else why it does not.
    const wchar_t* CheckChallengeResponse(ICrypto& crypto, const std::vector<uint8_t>& response);
    const wchar_t* CheckStaticCode(const std::vector<uint8_t>& response) const;

    CardProfile m_profile;
    bool m_present;
    uint64_t m_insertion = 1;
    bool m_challengePending = false;
    SecureBytes m_challenge;
    std::vector<std::shared_ptr<CreatedCredential>> m_created;
};

} // namespace sim
