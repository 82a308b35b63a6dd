// The controller's shared state and the reader objects. Every object handed out holds a
// reference to the state and locks its mutex for each call.
#pragma once
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "profile.h"
#include "sim_card.h"
#include "sim_controller.h"

namespace sim {

class SimContext;

class SimReader : public NV::SMMW::IReader {
  public:
    SimReader(SimController::State& state, std::wstring name) : m_state(state), m_name(std::move(name)) {}
    const wchar_t* GetName() const override { return m_name.c_str(); }
    NV::SMMW::ReaderState GetState() override;

    const std::wstring& Name() const { return m_name; }
    std::shared_ptr<Card> card; // null: the reader is empty for good
    bool listed = true;         // false once a profile no longer names the reader

  private:
    SimController::State& m_state;
    std::wstring m_name;
};

using ReaderEvent = std::pair<NV::SMMW::ReaderEventKind, std::wstring>;

struct SimController::State {
    State(ICrypto& c, SimClock k) : crypto(c), clock(std::move(k)) {}
    ~State();

    std::chrono::steady_clock::time_point Now() const {
        return clock ? clock() : std::chrono::steady_clock::now();
    }
    SimReader* FindListedReader(const std::wstring& name) const;
    // Throws the controller-wide failure injected for the operation, if any is left.
    void CheckOperation(const char* operation);
    void Deliver(const std::vector<ReaderEvent>& events);

    ICrypto& crypto;
    SimClock clock;

    mutable std::mutex mutex; // guards everything below but the sinks
    // Reader objects are never deleted while the controller lives: the layer keeps their pointers.
    std::vector<std::unique_ptr<SimReader>> readers;
    std::vector<std::unique_ptr<SimContext>> contexts;
    std::vector<FailureRule> failures;

    // Recursive so that a sink may unsubscribe from within its own call; held while delivering,
    // so that Unsubscribe on another thread waits for a call in progress to end.
    std::recursive_mutex sinkMutex;
    std::vector<NV::SMMW::IReaderEventSink*> sinks;
};

} // namespace sim
