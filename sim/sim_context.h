// A context on one card and the objects it owns: the card context and the credentials.
#pragma once
#include <chrono>
#include <memory>
#include <vector>

#include "sim_state.h"

namespace sim {

class SimContext;

class SimCardContext : public NV::SMMW::ICardContext {
  public:
    explicit SimCardContext(SimContext& context) : m_context(context) {}
    void GetProperty(int32_t id, CVData& value) override;
    void SetProperty(int32_t id, const CVData& value) override;
    void RunAction(const wchar_t* action) override;

  private:
    SimContext& m_context;
};

class SimAccessRight : public NV::SMMW::CSMMWAccessControlRight {
  public:
    explicit SimAccessRight(bool authenticable) : m_authenticable(authenticable) {}
    bool IsAuthenticable() const override { return m_authenticable; }

  private:
    bool m_authenticable;
};

class SimPinCredential : public NV::SMMW::IPinCredential {
  public:
    explicit SimPinCredential(SimContext& context);
    int32_t GetType() const override { return NV::SMMW::CREDENTIAL_PIN; }
    void GetProperty(int32_t id, CVData& value) override;
    void SetProperty(int32_t id, const CVData& value) override;
    NV::SMMW::CSMMWAccessControlRight* GetAccessRight(const wchar_t* action) override;
    NV::SMMW::IPinCredential* AsPinCredential() override { return this; }
    std::vector<uint8_t> GetUnblockChallenge() override;
    void Unblock(const std::vector<uint8_t>& response, const wchar_t* newPin, uint32_t flags) override;

  private:
    SimContext& m_context;
    std::unique_ptr<SimAccessRight> m_unblockRight; // null: the card has no unblock right
};

class SimCreatedCredential : public NV::SMMW::ICredential {
  public:
    SimCreatedCredential(SimContext& context, std::shared_ptr<CreatedCredential> record);
    int32_t GetType() const override { return m_record->type; }
    void GetProperty(int32_t id, CVData& value) override;
    void SetProperty(int32_t id, const CVData& value) override;
    NV::SMMW::CSMMWAccessControlRight* GetAccessRight(const wchar_t* action) override;
    NV::SMMW::IPinCredential* AsPinCredential() override { return nullptr; }

    const std::shared_ptr<CreatedCredential>& Record() const { return m_record; }

  private:
    SimContext& m_context;
    std::shared_ptr<CreatedCredential> m_record;
    SimAccessRight m_right{true};
};

class SimContext : public NV::SMMW::IContext {
  public:
    SimContext(SimController::State& state, SimReader& reader);

    NV::SMMW::ICardContext* GetCard() override;
    std::vector<NV::SMMW::ICredential*> ListCredentials(const NV::SMMW::Filter& filter) override;
    NV::SMMW::ICredential* CreateCredential(const NV::SMMW::CredentialParameters& parameters,
                                            const std::vector<std::wstring>& accessRights) override;
    bool HasCapability(const wchar_t* capability) override;
    void BeginTransaction() override;
    void EndTransaction() override;
    void ResetTransactionTimeout() override;

    SimController::State& State() { return m_state; }
    // The card, after checking that it is still the one this context was opened on and that no
    // failure is injected for the operation. Call with the state mutex held.
    Card& Use(const char* operation);
    Card& UseProperty(const char* operation, int32_t id);
    // A context on a removed card can still be released; only an injected failure stops it.
    void CheckRelease() { m_card->CheckOperation("ReleaseContext"); }

  private:
    void RequireSameCard() const;
    bool Lapsed() const;
    SimCreatedCredential& WrapperOf(const std::shared_ptr<CreatedCredential>& record);

    SimController::State& m_state;
    std::shared_ptr<Card> m_card;
    uint64_t m_insertion;
    SimCardContext m_cardContext{*this};
    std::vector<std::unique_ptr<SimPinCredential>> m_pins;
    std::vector<std::unique_ptr<SimCreatedCredential>> m_created;
    bool m_inTransaction = false;
    std::chrono::steady_clock::time_point m_transactionStart{};
};

} // namespace sim
