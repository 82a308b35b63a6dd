#include "sim_controller.h"

#include <algorithm>
#include <unordered_map>

#include "sim_context.h"
#include "sim_errors.h"
#include "sim_state.h"
#include "smmw_sim.h"

namespace sim {

using namespace NV::SMMW;

namespace {
using Lock = std::lock_guard<std::mutex>;
}

// ---- state

SimController::State::~State() = default;

SimReader* SimController::State::FindListedReader(const std::wstring& name) const {
    for (const auto& reader : readers)
        if (reader->listed && reader->Name() == name) return reader.get();
    return nullptr;
}

void SimController::State::CheckOperation(const char* operation) {
    ThrowIfInjected(failures, operation, -1);
}

void SimController::State::Deliver(const std::vector<ReaderEvent>& events) {
    std::lock_guard<std::recursive_mutex> lock(sinkMutex);
    for (const ReaderEvent& event : events) {
        // A sink may unsubscribe itself or another one while it is called.
        const std::vector<IReaderEventSink*> snapshot = sinks;
        for (IReaderEventSink* sink : snapshot) {
            if (std::find(sinks.begin(), sinks.end(), sink) == sinks.end()) continue;
            try {
                sink->OnReaderEvent(event.first, event.second.c_str());
            } catch (...) {
                // A failing sink must not keep the others from hearing of the card.
            }
        }
    }
}

ReaderState SimReader::GetState() {
    return Guarded([&] {
        Lock lock(m_state.mutex);
        if (!listed) return READER_STATE_UNAVAILABLE;
        if (card) card->CheckOperation("GetState");
        return card && card->Present() ? READER_STATE_PRESENT : READER_STATE_EMPTY;
    });
}

// ---- controller

SimController::SimController(ICrypto& crypto, SimClock clock) : m_state(new State(crypto, std::move(clock))) {
    LoadProfile(DefaultProfileJson(), nullptr);
}

SimController::~SimController() = default;

bool SimController::LoadProfile(const std::string& json, std::string* error) {
    std::vector<ReaderEvent> events;
    try {
        Profile profile;
        if (!ParseProfile(json, profile, error)) return false;
        State& state = *m_state;
        Lock lock(state.mutex);
        for (auto& reader : state.readers) {
            if (reader->card && reader->card->Present()) {
                if (reader->listed) events.emplace_back(READER_EVENT_CARD_REMOVED, reader->Name());
                reader->card->Remove(); // contexts on it now fail as after a removal
            }
            reader->card.reset();
            reader->listed = false;
        }
        // Listing follows the profile's order; reused reader objects are moved into place.
        std::unordered_map<std::wstring, std::unique_ptr<SimReader>*> byName(state.readers.size());
        for (auto& reader : state.readers)
            byName.emplace(reader->Name(), &reader);
        std::vector<std::unique_ptr<SimReader>> ordered;
        ordered.reserve(profile.readers.size() + state.readers.size());
        for (ReaderProfile& entry : profile.readers) {
            auto same = byName.find(entry.name);
            std::unique_ptr<SimReader> reader = same != byName.end()
                                                    ? std::move(*same->second)
                                                    : std::make_unique<SimReader>(state, entry.name);
            reader->listed = true;
            if (entry.hasCard) {
                reader->card = std::make_shared<Card>(std::move(entry.card));
                if (reader->card->Present()) events.emplace_back(READER_EVENT_CARD_INSERTED, reader->Name());
            }
            ordered.push_back(std::move(reader));
        }
        for (auto& reader : state.readers)
            if (reader) ordered.push_back(std::move(reader));
        state.readers.swap(ordered);
        state.failures = std::move(profile.failures);
    } catch (...) {
        if (error) *error = "out of memory";
        return false;
    }
    m_state->Deliver(events);
    return true;
}

bool SimController::RemoveCard(const std::wstring& name) {
    try {
        {
            Lock lock(m_state->mutex);
            SimReader* reader = m_state->FindListedReader(name);
            if (!reader || !reader->card || !reader->card->Present()) return false;
            reader->card->Remove();
        }
        m_state->Deliver({{READER_EVENT_CARD_REMOVED, name}});
        return true;
    } catch (...) {
        return false;
    }
}

bool SimController::InsertCard(const std::wstring& name) {
    try {
        {
            Lock lock(m_state->mutex);
            SimReader* reader = m_state->FindListedReader(name);
            if (!reader || !reader->card || reader->card->Present()) return false;
            reader->card->Insert();
        }
        m_state->Deliver({{READER_EVENT_CARD_INSERTED, name}});
        return true;
    } catch (...) {
        return false;
    }
}

bool SimController::GetPinState(const std::wstring& name, SimPinState* out) const {
    Lock lock(m_state->mutex);
    SimReader* reader = m_state->FindListedReader(name);
    if (!out || !reader || !reader->card) return false;
    const PinProfile& pin = reader->card->Profile().pin;
    *out = SimPinState{pin.triesLeft, pin.maxTries, pin.triesLeft == 0};
    return true;
}

bool SimController::PinEquals(const std::wstring& name, const wchar_t* pin) const {
    Lock lock(m_state->mutex);
    SimReader* reader = m_state->FindListedReader(name);
    return reader && reader->card && reader->card->PinEquals(pin);
}

int SimController::VerifyPin(const std::wstring& name, const wchar_t* pin, unsigned* triesLeft) {
    if (!pin) return CVSIM_E_INVALID_ARGUMENT;
    Lock lock(m_state->mutex);
    SimReader* reader = m_state->FindListedReader(name);
    if (!reader || !reader->card || !reader->card->Present()) return CVSIM_E_NOT_FOUND;
    const Card::Verification outcome = reader->card->VerifyPin(pin);
    if (triesLeft) *triesLeft = reader->card->Profile().pin.triesLeft;
    switch (outcome) {
    case Card::Verification::Verified:
        return CVSIM_OK;
    case Card::Verification::WrongPin:
        return CVSIM_E_NO_MATCH;
    case Card::Verification::Blocked:
        break;
    }
    return CVSIM_E_BLOCKED;
}

void SimController::Initialize() {
    Guarded([&] {
        Lock lock(m_state->mutex);
        m_state->CheckOperation("Initialize");
    });
}

std::vector<IReader*> SimController::ListReaders() {
    return Guarded([&] {
        Lock lock(m_state->mutex);
        m_state->CheckOperation("ListReaders");
        std::vector<IReader*> listed;
        for (const auto& reader : m_state->readers)
            if (reader->listed) listed.push_back(reader.get());
        return listed;
    });
}

IContext* SimController::EstablishContext(const ParameterMap& parameters) {
    return Guarded([&]() -> IContext* {
        State& state = *m_state;
        Lock lock(state.mutex);
        SimReader* reader = nullptr;
        if (const std::wstring* name = parameters.Find(L"ReaderName")) {
            reader = state.FindListedReader(*name);
            if (!reader) Fail(SMMW_E_INVALID_PARAMETER, L"No reader is named " + *name);
            if (!reader->card || !reader->card->Present())
                Fail(SMMW_E_NO_CARD, L"No card in reader " + *name);
        } else {
            for (const auto& candidate : state.readers)
                if (candidate->listed && candidate->card && candidate->card->Present()) {
                    reader = candidate.get();
                    break;
                }
            if (!reader) Fail(SMMW_E_NO_CARD, L"No reader holds a card");
        }
        reader->card->CheckOperation("EstablishContext");
        state.contexts.emplace_back(new SimContext(state, *reader));
        return state.contexts.back().get();
    });
}

void SimController::ReleaseContext(IContext* context) {
    Guarded([&] {
        State& state = *m_state;
        Lock lock(state.mutex);
        auto it = std::find_if(state.contexts.begin(), state.contexts.end(),
                               [&](const std::unique_ptr<SimContext>& c) { return c.get() == context; });
        if (!context || it == state.contexts.end())
            Fail(SMMW_E_INVALID_PARAMETER, L"Not a context of this module");
        // A failed release keeps the context; the controller frees it when it goes.
        (*it)->CheckRelease();
        state.contexts.erase(it);
    });
}

void SimController::Subscribe(IReaderEventSink* sink) {
    Guarded([&] {
        if (!sink) Fail(SMMW_E_INVALID_PARAMETER, L"No sink");
        std::lock_guard<std::recursive_mutex> lock(m_state->sinkMutex);
        auto& sinks = m_state->sinks;
        if (std::find(sinks.begin(), sinks.end(), sink) == sinks.end()) sinks.push_back(sink);
    });
}

void SimController::Unsubscribe(IReaderEventSink* sink) {
    Guarded([&] {
        std::lock_guard<std::recursive_mutex> lock(m_state->sinkMutex);
        auto& sinks = m_state->sinks;
        sinks.erase(std::remove(sinks.begin(), sinks.end(), sink), sinks.end());
    });
}

} // namespace sim
