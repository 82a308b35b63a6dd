// Profiles come from a file or an environment variable anyone may set.
#include <cstddef>
#include <cstdint>
#include <string>

#include "profile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    sim::Profile profile;
    std::string error;
    const bool ok = sim::ParseProfile(std::string(reinterpret_cast<const char*>(data), size), profile, &error);
    // Every refusal says why.
    if (!ok && error.empty()) __builtin_trap();
    return 0;
}
