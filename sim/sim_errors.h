// How the simulator fails across the interface: an IException* carrying a module code, and
// nothing else, whatever goes wrong inside.
#pragma once
#include <cstdint>
#include <exception>
#include <new>
#include <string>

#include "smmw.h"

namespace sim {

class SimException : public NV::Framework::IException {
  public:
    SimException(uint32_t code, std::wstring message) : m_code(code), m_message(std::move(message)) {}
    const wchar_t* GetMessageText() const override { return m_message.c_str(); }
    uint32_t GetCode() const override { return m_code; }
    void Release() override { delete this; }

  private:
    ~SimException() override = default;
    uint32_t m_code;
    std::wstring m_message;
};

[[noreturn]] void Fail(uint32_t code, const std::wstring& message);

// Runs an interface operation so that standard exceptions leave it as IException* too.
template <class F> auto Guarded(F&& operation) -> decltype(operation()) {
    try {
        return operation();
    } catch (NV::Framework::IException*) {
        throw;
    } catch (const std::bad_alloc&) {
        Fail(NV::SMMW::SMMW_E_NO_MEMORY, L"Out of memory");
    } catch (...) {
        Fail(NV::SMMW::SMMW_E_INTERNAL, L"Internal error of the simulated module");
    }
}

} // namespace sim
