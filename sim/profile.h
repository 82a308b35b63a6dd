// A simulator profile: the readers and the cards in them, parsed from JSON and checked before
// anything of it is used. The format is described in docs/simulator.md.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "secure_bytes.h"
#include "services/secstr.h"

namespace sim {

enum class CardType { Piv, Cac, Other };

// A failure to inject: either an operation by name or a property by id, `times` times
// (0: every time).
struct FailureRule {
    std::string operation; // empty for a property rule
    int32_t property = -1; // -1 for an operation rule
    uint32_t code = 0;
    uint32_t times = 0;
};

struct PinProfile {
    CSecStr value;
    uint32_t minLength = 6;
    uint32_t maxLength = 8;
    bool weakCheck = true;
    uint32_t triesLeft = 3;
    uint32_t maxTries = 3;
    uint32_t primaryCount = 1;
};

struct CardProfile {
    std::vector<uint8_t> serial;
    CardType type = CardType::Piv;
    bool inserted = true;
    uint32_t transactionTimeout = 0; // seconds; 0: a transaction never lapses
    PinProfile pin;
    bool hasUnblockRight = false;
    bool unblockAuthenticable = false;
    SecureBytes adminKey;   // 16 or 24 bytes when the right is a challenge/response one
    SecureBytes staticCode; // else the 8 bytes that answer every unblock (no challenge)
    SecureBytes unlockCode; // empty: none
    std::vector<std::wstring> capabilities;
    std::vector<FailureRule> failures;
};

// A static unlock code is as long as a response, so that the host reads both the same way.
constexpr size_t kStaticCodeBytes = 8;

struct ReaderProfile {
    std::wstring name;
    bool hasCard = false;
    CardProfile card;
};

struct Profile {
    std::vector<ReaderProfile> readers;
    std::vector<FailureRule> failures; // controller-wide: "Initialize", "ListReaders"
};

// False with *error naming the offending field (never its value) when the text is not a valid
// profile; `out` is then untouched.
bool ParseProfile(const std::string& json, Profile& out, std::string* error);

// Operation names a card's failure rule may name, and those of the controller-wide list.
bool IsCardOperation(const std::string& name);
bool IsControllerOperation(const std::string& name);

} // namespace sim
