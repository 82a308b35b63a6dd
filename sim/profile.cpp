// Profiles are written by hand for tests and demonstrations, so every mistake is refused with
// the path of the field at fault; a typo must not silently become a default.
#include "profile.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <initializer_list>
#include <unordered_set>

#include "hex.h"

namespace sim {

namespace {

using nlohmann::json;

struct ProfileError {
    std::string message;
};

[[noreturn]] void Reject(const std::string& path, const std::string& what) {
    throw ProfileError{path + ": " + what};
}

const char* const kCardOperations[] = {
    "GetState",        "EstablishContext",        "ReleaseContext",      "GetCard",
    "ListCredentials", "CreateCredential",        "HasCapability",       "BeginTransaction",
    "EndTransaction",  "ResetTransactionTimeout", "RunAction",           "GetProperty",
    "SetProperty",     "GetAccessRight",          "GetUnblockChallenge", "Unblock",
};
const char* const kControllerOperations[] = {"Initialize", "ListReaders"};

template <size_t N> bool Contains(const char* const (&names)[N], const std::string& name) {
    return std::any_of(std::begin(names), std::end(names), [&](const char* n) { return name == n; });
}

// Valid UTF-8 is guaranteed by the JSON parser; wchar_t is UTF-16 on Windows, UTF-32 elsewhere.
std::wstring Widen(const std::string& text) {
    std::wstring wide;
    for (size_t i = 0; i < text.size();) {
        const unsigned char lead = static_cast<unsigned char>(text[i]);
        const int extra = lead < 0x80 ? 0 : lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
        uint32_t cp = extra == 0 ? lead : lead & (0x3F >> extra);
        for (int k = 1; k <= extra && i + k < text.size(); ++k)
            cp = cp << 6 | (static_cast<unsigned char>(text[i + k]) & 0x3F);
        i += extra + 1;
        if (sizeof(wchar_t) == 2 && cp >= 0x10000) {
            cp -= 0x10000;
            wide += static_cast<wchar_t>(0xD800 + (cp >> 10));
            wide += static_cast<wchar_t>(0xDC00 + (cp & 0x3FF));
        } else {
            wide += static_cast<wchar_t>(cp);
        }
    }
    return wide;
}

// One JSON object with the fields it may have; "description" is allowed everywhere as a note.
class Fields {
  public:
    Fields(json& object, std::string path, std::initializer_list<const char*> known)
        : m_object(object), m_path(std::move(path)) {
        if (!m_object.is_object()) Reject(m_path, "must be an object");
        for (auto& item : m_object.items()) {
            const std::string& key = item.key();
            if (key == "description") continue;
            if (std::none_of(known.begin(), known.end(), [&](const char* k) { return key == k; }))
                Reject(m_path, "unknown field \"" + key + "\"");
        }
    }

    json* Find(const char* key) {
        auto it = m_object.find(key);
        return it == m_object.end() ? nullptr : &*it;
    }
    std::string PathOf(const char* key) const { return m_path + "." + key; }

    std::string String(const char* key, bool required, const std::string& fallback = {}) {
        json* value = Find(key);
        if (!value) {
            if (required) Reject(PathOf(key), "missing");
            return fallback;
        }
        if (!value->is_string()) Reject(PathOf(key), "must be a string");
        return value->get<std::string>();
    }

    uint32_t Unsigned(const char* key, uint32_t fallback, uint32_t maximum = UINT32_MAX) {
        json* value = Find(key);
        if (!value) return fallback;
        if (value->is_number_integer() && !value->is_number_unsigned())
            Reject(PathOf(key), "must not be negative");
        if (!value->is_number_unsigned()) Reject(PathOf(key), "must be a whole number");
        const uint64_t n = value->get<uint64_t>();
        if (n > maximum) Reject(PathOf(key), "must be at most " + std::to_string(maximum));
        return static_cast<uint32_t>(n);
    }

    bool Bool(const char* key, bool fallback) {
        json* value = Find(key);
        if (!value) return fallback;
        if (!value->is_boolean()) Reject(PathOf(key), "must be true or false");
        return value->get<bool>();
    }

    // Secret strings: read in place and wiped in the parsed tree at once, so that the only copy
    // left is the caller's own input text.
    std::vector<uint8_t> SecretHex(const char* key) {
        std::string& text = SecretText(key);
        std::vector<uint8_t> bytes;
        std::string error;
        const bool ok = ParseHex(text, HexSeparators::Refuse, bytes, &error);
        SecureWipe(&text[0], text.size());
        if (!ok) Reject(PathOf(key), error);
        return bytes;
    }
    std::string& SecretText(const char* key) {
        json* value = Find(key);
        if (!value || !value->is_string()) Reject(PathOf(key), "must be a string");
        return value->get_ref<std::string&>();
    }

  private:
    json& m_object;
    std::string m_path;
};

std::vector<FailureRule> ParseFailures(json* list, const std::string& path, bool cardLevel) {
    std::vector<FailureRule> rules;
    if (!list || list->is_null()) return rules;
    if (!list->is_array()) Reject(path, "must be a list");
    for (size_t i = 0; i < list->size(); ++i) {
        const std::string itemPath = path + "[" + std::to_string(i) + "]";
        Fields f((*list)[i], itemPath, {"operation", "property", "code", "times"});
        FailureRule rule;
        const bool hasOperation = f.Find("operation") != nullptr;
        const bool hasProperty = f.Find("property") != nullptr;
        if (hasOperation == hasProperty)
            Reject(itemPath, "needs exactly one of \"operation\" and \"property\"");
        if (hasOperation) {
            rule.operation = f.String("operation", true);
            const bool known =
                cardLevel ? IsCardOperation(rule.operation) : IsControllerOperation(rule.operation);
            if (!known) Reject(f.PathOf("operation"), "unknown operation \"" + rule.operation + "\"");
        } else {
            if (!cardLevel) Reject(f.PathOf("property"), "properties fail only on a card");
            rule.property = static_cast<int32_t>(f.Unsigned("property", 0, INT32_MAX));
        }
        if (!f.Find("code")) Reject(f.PathOf("code"), "missing");
        rule.code = f.Unsigned("code", 0);
        if (rule.code < 3000) Reject(f.PathOf("code"), "module codes start at 3000");
        rule.times = f.Unsigned("times", 0);
        rules.push_back(std::move(rule));
    }
    return rules;
}

void ParsePin(json* object, const std::string& path, PinProfile& pin) {
    pin.value = L"123456";
    if (!object) return;
    Fields f(*object, path, {"value", "min", "max", "weakCheck", "triesLeft", "maxTries", "primaryCount"});
    if (f.Find("value")) {
        std::string& text = f.SecretText("value");
        const bool ascii = std::all_of(text.begin(), text.end(), [](char c) { return c > 0x20 && c < 0x7F; });
        CSecStr value;
        for (char c : text)
            value.AppendChar(static_cast<wchar_t>(c));
        SecureWipe(&text[0], text.size());
        if (!ascii) Reject(f.PathOf("value"), "must be printable ASCII without blanks");
        pin.value = value;
    }
    pin.minLength = f.Unsigned("min", 6, 255);
    pin.maxLength = f.Unsigned("max", 8, 255);
    if (pin.minLength < 1) Reject(f.PathOf("min"), "must be at least 1");
    if (pin.maxLength < pin.minLength) Reject(f.PathOf("max"), "must not be below min");
    const uint32_t length = static_cast<uint32_t>(pin.value.GetLength());
    if (length < pin.minLength || length > pin.maxLength)
        Reject(f.PathOf("value"), "length outside min..max");
    pin.weakCheck = f.Bool("weakCheck", true);
    pin.maxTries = f.Unsigned("maxTries", 3, 255);
    if (pin.maxTries < 1) Reject(f.PathOf("maxTries"), "must be at least 1");
    pin.triesLeft = f.Unsigned("triesLeft", pin.maxTries, 255);
    if (pin.triesLeft > pin.maxTries) Reject(f.PathOf("triesLeft"), "must not exceed maxTries");
    pin.primaryCount = f.Unsigned("primaryCount", 1, 2);
}

void ParseCard(json& object, const std::string& path, CardProfile& card) {
    Fields f(object, path,
             {"serial", "type", "inserted", "transactionTimeout", "pin", "unblock", "unlockCode",
              "capabilities", "failures"});
    std::string error;
    if (!ParseHex(f.String("serial", true), HexSeparators::Refuse, card.serial, &error))
        Reject(f.PathOf("serial"), error);
    if (card.serial.empty()) Reject(f.PathOf("serial"), "must hold at least one byte");

    const std::string type = f.String("type", false, "piv");
    if (type == "piv")
        card.type = CardType::Piv;
    else if (type == "cac")
        card.type = CardType::Cac;
    else if (type == "other")
        card.type = CardType::Other;
    else
        Reject(f.PathOf("type"), "unknown type \"" + type + "\" (piv, cac or other)");

    card.inserted = f.Bool("inserted", true);
    card.transactionTimeout = f.Unsigned("transactionTimeout", 0);
    ParsePin(f.Find("pin"), f.PathOf("pin"), card.pin);

    json* unblock = f.Find("unblock");
    if (unblock && !unblock->is_null()) {
        Fields u(*unblock, f.PathOf("unblock"), {"adminKey", "staticCode", "authenticable"});
        card.hasUnblockRight = true;
        card.unblockAuthenticable = u.Bool("authenticable", true);
        if (u.Find("staticCode")) {
            // A card either answers challenges or knows one code; both would leave the host guessing.
            if (u.Find("adminKey")) Reject(u.PathOf("staticCode"), "not allowed beside \"adminKey\"");
            card.staticCode = SecureBytes(u.SecretHex("staticCode"));
            if (card.staticCode.Size() != kStaticCodeBytes)
                Reject(u.PathOf("staticCode"), "must be " + std::to_string(kStaticCodeBytes) +
                                                   " bytes, got " + std::to_string(card.staticCode.Size()));
        } else {
            card.adminKey = SecureBytes(u.SecretHex("adminKey"));
            if (card.adminKey.Size() != 16 && card.adminKey.Size() != 24)
                Reject(u.PathOf("adminKey"), "must be 16 or 24 bytes (two-key or three-key 3DES), got " +
                                                 std::to_string(card.adminKey.Size()));
        }
    }

    json* code = f.Find("unlockCode");
    if (code && !code->is_null()) {
        card.unlockCode = SecureBytes(f.SecretHex("unlockCode"));
        if (card.unlockCode.Empty())
            Reject(f.PathOf("unlockCode"), "must hold at least one byte (omit it for none)");
    }

    if (json* list = f.Find("capabilities")) {
        if (!list->is_array()) Reject(f.PathOf("capabilities"), "must be a list of strings");
        for (auto& item : *list) {
            if (!item.is_string()) Reject(f.PathOf("capabilities"), "must be a list of strings");
            card.capabilities.push_back(Widen(item.get<std::string>()));
        }
    }
    card.failures = ParseFailures(f.Find("failures"), f.PathOf("failures"), true);
}

Profile ParseTree(json& root) {
    Profile profile;
    Fields top(root, "profile", {"readers", "failures"});
    json* readers = top.Find("readers");
    if (!readers) Reject("profile.readers", "missing");
    if (!readers->is_array()) Reject("profile.readers", "must be a list");
    // Names are checked by hash: a profile of many thousand readers must load in linear time.
    std::unordered_set<std::wstring> names;
    names.reserve(readers->size());
    profile.readers.reserve(readers->size());
    for (size_t i = 0; i < readers->size(); ++i) {
        const std::string path = "readers[" + std::to_string(i) + "]";
        Fields r((*readers)[i], path, {"name", "card"});
        ReaderProfile reader;
        reader.name = Widen(r.String("name", true));
        if (reader.name.empty()) Reject(r.PathOf("name"), "must not be empty");
        if (!names.insert(reader.name).second) Reject(r.PathOf("name"), "used by two readers");
        json* card = r.Find("card");
        if (card && !card->is_null()) {
            reader.hasCard = true;
            ParseCard(*card, r.PathOf("card"), reader.card);
        }
        profile.readers.push_back(std::move(reader));
    }
    profile.failures = ParseFailures(top.Find("failures"), "profile.failures", false);
    return profile;
}

// The parser and the walks over its tree recurse once per level; a profile nested deep enough to
// exhaust the stack is refused by this linear scan before any of them runs. A real profile is
// six levels deep; notes ("description") get room to spare.
constexpr size_t kMaxNesting = 32;

bool NestingWithinLimit(const std::string& text, std::string* error) {
    size_t depth = 0;
    bool inString = false;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (c == '\\')
                ++i; // whatever is escaped cannot end the string
            else if (c == '"')
                inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > kMaxNesting) {
                if (error)
                    *error = "nested more than " + std::to_string(kMaxNesting) + " levels deep (at byte " +
                             std::to_string(i + 1) + ")";
                return false;
            }
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth; // unbalanced brackets are the parser's to report
        }
    }
    return true;
}

// Wipes every string left in the tree: a profile that failed half-way still holds secrets.
void WipeStrings(json& node) {
    if (node.is_string()) {
        std::string& text = node.get_ref<std::string&>();
        if (!text.empty()) SecureWipe(&text[0], text.size());
    } else if (node.is_structured()) {
        for (auto& child : node)
            WipeStrings(child);
    }
}

} // namespace

bool IsCardOperation(const std::string& name) {
    return Contains(kCardOperations, name);
}

bool IsControllerOperation(const std::string& name) {
    return Contains(kControllerOperations, name);
}

bool ParseProfile(const std::string& text, Profile& out, std::string* error) {
    if (!NestingWithinLimit(text, error)) return false;
    json root;
    try {
        root = json::parse(text);
    } catch (const json::parse_error& e) {
        // The library's own message quotes the text near the fault, which may be a key.
        if (error) *error = "not valid JSON (at byte " + std::to_string(e.byte) + ")";
        return false;
    } catch (const std::exception&) {
        if (error) *error = "the profile could not be read";
        return false;
    }
    try {
        Profile profile = ParseTree(root);
        WipeStrings(root);
        out = std::move(profile);
        return true;
    } catch (const ProfileError& e) {
        if (error) *error = e.message;
    } catch (const std::bad_alloc&) {
        if (error) *error = "out of memory";
    } catch (const std::exception&) {
        if (error) *error = "the profile could not be read";
    }
    WipeStrings(root);
    return false;
}

} // namespace sim
