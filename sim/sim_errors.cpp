#include "sim_errors.h"

namespace sim {

void Fail(uint32_t code, const std::wstring& message) {
    NV::Framework::IException* exception = nullptr;
    try {
        exception = new SimException(code, message);
    } catch (...) {
        // No memory for the text either: an exception without one still tells the code.
        exception = new (std::nothrow) SimException(code, std::wstring());
    }
    if (!exception) std::terminate();
    throw exception;
}

} // namespace sim
