// The simulated security module: readers and cards described by a JSON profile, served through
// the security-module interface of smmw.h. Portable, so that the card layer and the simulator
// itself are tested natively with a deterministic stand-in for the cipher.
//
// Thread safety: every object handed out locks the controller's one state mutex, so a test thread
// may remove a card while the UI thread works on a context. Reader events are delivered on the
// thread that caused them, without the state mutex held; after Unsubscribe returns, the sink is
// not called again.
#pragma once
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "crypto.h"
#include "smmw.h"

namespace sim {

// The built-in profile: one reader, one ready PIV card (documented in docs/simulator.md).
const char* DefaultProfileJson();

struct SimPinState {
    uint32_t triesLeft;
    uint32_t maxTries;
    bool blocked; // no tries left
};

// Properties the simulator adds to the user PIN credential (read-only, unsigned 32-bit).
enum SimPropertyId : int32_t {
    SIM_PROPERTY_TRIES_LEFT = 9001,
    SIM_PROPERTY_MAX_TRIES = 9002,
};

// Where "now" comes from, so that tests can run transaction time-outs without waiting.
using SimClock = std::function<std::chrono::steady_clock::time_point()>;

class SimController : public NV::SMMW::IController {
  public:
    // Starts with the built-in profile. The crypto object must outlive the controller.
    explicit SimController(ICrypto& crypto, SimClock clock = {});
    ~SimController() override;
    SimController(const SimController&) = delete;
    SimController& operator=(const SimController&) = delete;

    // Replaces every card. Readers of the same name keep their IReader object; readers that are
    // gone report READER_STATE_UNAVAILABLE and are no longer listed. Contexts on replaced cards
    // fail with SMMW_E_CARD_REMOVED; readers whose card was present get a removal event, readers
    // with a card in the new profile an insertion event. On false the old state is kept and
    // *error (if given) says what is wrong, without quoting any secret.
    bool LoadProfile(const std::string& json, std::string* error);
    // False for an unknown reader, a reader without a card, or a card already out / already in.
    bool RemoveCard(const std::wstring& reader); // raises READER_EVENT_CARD_REMOVED to sinks
    bool InsertCard(const std::wstring& reader); // the profile's card comes back (state kept)
    // The card's state whether it is in the reader or not; false without such a reader or card.
    bool GetPinState(const std::wstring& reader, SimPinState* state) const;
    bool PinEquals(const std::wstring& reader, const wchar_t* pin) const;
    // CvSimVerifyPin of smmw_sim.h, whose result codes it returns: the card must be in the reader.
    int VerifyPin(const std::wstring& reader, const wchar_t* pin, unsigned* triesLeft);

    void Initialize() override;
    std::vector<NV::SMMW::IReader*> ListReaders() override;
    NV::SMMW::IContext* EstablishContext(const NV::SMMW::ParameterMap& parameters) override;
    void ReleaseContext(NV::SMMW::IContext* context) override;
    void Subscribe(NV::SMMW::IReaderEventSink* sink) override;
    void Unsubscribe(NV::SMMW::IReaderEventSink* sink) override;

    struct State; // defined in sim_state.h

  private:
    std::unique_ptr<State> m_state;
};

} // namespace sim
