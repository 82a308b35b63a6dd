// After the PIN has been handed over and released, no copy of it may be left anywhere in the
// process: not in the dialog, the edit control, the library's strings or the heap.
#include <gtest/gtest.h>
#include <windows.h>
#include <bcrypt.h>
#include <cstring>
#include <string>
#include <functional>
#include <utility>
#include <vector>
#include "cvpingui.h"
#include "driver_win.h"
#include "resource_ids.h"

using namespace drv;

namespace {

// The test never holds the PIN in plain: only masked, unmasked one character at a time.
// Short PINs and long ones: Wine's HeapFree overwrites the first 16 bytes of a freed block, so
// only a PIN longer than that shows an unwiped copy in freed memory.
constexpr int kPinLengths[] = {16, 40};
constexpr int kMaxPinLength = 64;

struct MaskedPin {
    int length;
    unsigned char masked[kMaxPinLength];
    volatile unsigned char key;
    wchar_t At(int i) const { return static_cast<wchar_t>(masked[i] ^ key); }
};

// Letters and digits, so the PIN is unlike anything else in memory; codes are hexadecimal.
const char kPinAlphabet[] = "0123456789ABCDEFGHJKLMNPQRSTUVWXYZ";
const char kHexAlphabet[] = "0123456789ABCDEF";

MaskedPin MakeSecret(int length, const char* alphabet = kPinAlphabet) {
    const size_t letters = strlen(alphabet);
    MaskedPin pin{length};
    BCryptGenRandom(nullptr, pin.masked, kMaxPinLength, BCRYPT_USE_SYSTEM_PREFERRED_RNG);
    pin.key = pin.masked[kMaxPinLength - 1] | 0x80;  // random too
    for (int i = 0; i < length; ++i)
        pin.masked[i] = static_cast<unsigned char>(alphabet[pin.masked[i] % letters] ^ pin.key);
    return pin;
}

// Finds pin[from, from+count) as ANSI (step 1) or UTF-16LE (step 2) bytes in the process.
size_t CountCopies(const MaskedPin& pin, int from, int count, int step) {
    size_t found = 0;
    std::vector<unsigned char> chunk;
    MEMORY_BASIC_INFORMATION info;
    SIZE_T read = 0;
    for (auto* address = static_cast<unsigned char*>(nullptr);
         VirtualQuery(address, &info, sizeof(info)) == sizeof(info);
         address = static_cast<unsigned char*>(info.BaseAddress) + info.RegionSize) {
        // Reservations for the heap's growth (beyond 256 MB) are not data.
        if (info.State != MEM_COMMIT || (info.Protect & (PAGE_GUARD | PAGE_NOACCESS | PAGE_EXECUTE)) ||
            !info.Protect || info.RegionSize > (256u << 20))
            continue;
        chunk.resize(info.RegionSize);
        if (!ReadProcessMemory(GetCurrentProcess(), info.BaseAddress, chunk.data(), info.RegionSize, &read)) continue;
        for (size_t at = 0; at + static_cast<size_t>(count) * step <= read; ++at) {
            int k = 0;
            const unsigned char* p = &chunk[at];
            while (k < count && p[k * step] == pin.At(from + k) && (step == 1 || p[k * step + 1] == 0)) ++k;
            found += k == count;
        }
    }
    SecureZeroMemory(chunk.data(), chunk.size());
    return found;
}

// The library holds codes as text only in UTF-16 (wideOnly); the simulated module's profile
// parser leaves ANSI copies of the profile's texts behind, which are not the library's to wipe.
size_t CountAllForms(const MaskedPin& pin, bool wideOnly = false) {
    const int n = pin.length, tail = n / 2;  // a freed block may keep its tail only
    size_t found = CountCopies(pin, 0, n, 2) + CountCopies(pin, n - tail, tail, 2);
    return wideOnly ? found : found + CountCopies(pin, 0, n, 1) + CountCopies(pin, n - tail, tail, 1);
}

const wchar_t kReader[] = L"Simulated Reader 0";

template <class Char>
bool Same(const MaskedPin& pin, const Char* text) {
    for (int i = 0; i < pin.length; ++i)
        if (text[i] != static_cast<Char>(pin.At(i))) return false;
    return true;
}

using Fields = std::initializer_list<std::pair<int, const MaskedPin*>>;

// Types each secret into its field of dialog; the last field's edit.
HWND TypeInto(HWND dialog, Fields fields) {
    HWND edit = nullptr;
    for (const auto& field : fields) {
        edit = FindDescendant(dialog, field.first);
        for (int i = 0; i < field.second->length; ++i) TypeChar(edit, field.second->At(i));
    }
    return edit;
}

// Runs call, types each PIN into its field of the window it opens and a typo, taken back, into
// the last field (the edit's own buffers must not keep it either), and clicks OK; the call's result.
int TypeAndConfirm(std::function<int()> call, Fields fields) {
    Opened opened(std::move(call));
    if (!opened.dialog) return Opened::kNoResult;
    HWND edit = TypeInto(opened.dialog, fields);
    TypeChar(edit, L'x');
    Backspace(edit);
    Click(opened.dialog, IDOK);
    return opened.Finish();
}

// A profile function of the simulated module.
template <class Function>
Function SimProfile(const char* name) {
    FARPROC function = GetProcAddress(LoadLibraryW(L"cv.smmw.mwctl.dll"), name);
    return reinterpret_cast<Function>(reinterpret_cast<void*>(function));
}

// A profile with a blocked card whose static code (and stored unlock code) is `code`; the text
// is wiped after loading, so only the module's own copy (bytes, not text) remains.
bool LoadCardWithCode(const MaskedPin& code, bool stored) {
    std::string json = R"({"readers": [{"name": "Memscan Reader", "card": {"serial": "0A0B0C0D", "type": "other",
        "pin": {"value": "0000", "min": 4, "max": 64, "weakCheck": false, "triesLeft": 0, "maxTries": 3},)";
    std::string hex;
    for (int i = 0; i < code.length; ++i) hex += static_cast<char>(code.At(i));
    json += stored ? R"("unlockCode": ")" + hex + R"("}}]})" : R"("unblock": {"staticCode": ")" + hex + R"("}}}]})";
    SecureZeroMemory(&hex[0], hex.size());
    const bool loaded = SimProfile<int (*)(const char*)>("CvSimLoadProfileJson")(json.c_str()) == 0;
    SecureZeroMemory(&json[0], json.size());
    return loaded;
}

void RestoreDefaultProfile() { SimProfile<int (*)()>("CvSimLoadDefaultProfile")(); }

// code as the display groups it: "-" after every fourth digit.
MaskedPin Grouped(const MaskedPin& code) {
    MaskedPin out{0};
    out.key = code.key;
    for (int i = 0; i < code.length; ++i) {
        if (i > 0 && i % 4 == 0) out.masked[out.length++] = static_cast<unsigned char>('-' ^ out.key);
        out.masked[out.length++] = static_cast<unsigned char>(code.At(i) ^ out.key);
    }
    return out;
}
}  // namespace

TEST(PinMemory, ScannerFindsAPlantedCopy) {
    MaskedPin pin = MakeSecret(kMaxPinLength);
    std::vector<wchar_t> planted(kMaxPinLength);
    for (int i = 0; i < kMaxPinLength; ++i) planted[i] = pin.At(i);
    EXPECT_GE(CountCopies(pin, 0, kMaxPinLength, 2), 1u);
    SecureZeroMemory(planted.data(), planted.size() * sizeof(wchar_t));
    EXPECT_EQ(CountCopies(pin, 0, kMaxPinLength, 2), 0u);
}

TEST(PinMemory, NoCopyOfTheTypedPinSurvivesTheCall) {
    for (int pinLength : kPinLengths) {
        SCOPED_TRACE(pinLength);
        MaskedPin pin = MakeSecret(pinLength);
        ASSERT_EQ(CountAllForms(pin), 0u);
        char* buffer = nullptr;
        unsigned length = 0;
        auto ask = [&] { return GetPINFromUser(nullptr, kReader, 0, 4, 64, &buffer, &length, nullptr, nullptr, 0); };
        ASSERT_EQ(TypeAndConfirm(ask, {{IDC_PIN_EDIT, &pin}}), CVPIN_OK);
        ASSERT_EQ(length, static_cast<unsigned>(pinLength));
        EXPECT_TRUE(Same(pin, buffer));
        FreeGetPinBuffer(buffer, length);
        EXPECT_EQ(CountAllForms(pin), 0u);
    }
}

// In the last case the current PIN fits the caller's buffer, the new one does not: the call fails
// and takes back what it had already copied.
TEST(PinMemory, NoCopyOfEitherPinSurvivesTheChangeOrItsFailure) {
    for (const auto& c : {std::make_pair(16, 64u), std::make_pair(40, 64u), std::make_pair(16, 8u)}) {
        SCOPED_TRACE(c.first);
        MaskedPin current = MakeSecret(c.first), next = MakeSecret(c.first);
        ASSERT_EQ(CountAllForms(current) + CountAllForms(next), 0u);
        struct {
            wchar_t current[64], next[64];
            unsigned currentLength = 0, nextLength = 0;
        } out;
        auto change = [&] {
            return (int)GetChangePINInfoFromUser_s(0, 1, 4, 64, 0, 0, out.next, c.second, &out.nextLength, out.current,
                                                   64, &out.currentLength, kReader, nullptr, 1, nullptr, nullptr, 0);
        };
        const bool fits = c.second == 64;
        ASSERT_EQ(TypeAndConfirm(change, {{IDC_CURRENT_PIN_EDIT, &current}, {IDC_CONFIRM_PIN_EDIT, &next},
                                          {IDC_NEW_PIN_EDIT, &next}}),
                  fits ? 0 : -1);
        EXPECT_EQ(out.currentLength + out.nextLength, fits ? 2u * c.first : 0u);
        if (fits) {
            EXPECT_TRUE(Same(current, out.current) && Same(next, out.next));
            SecureZeroMemory(&out, sizeof(out));  // the caller's part; a failed call must do it itself
        }
        EXPECT_EQ(CountAllForms(current) + CountAllForms(next), 0u);
    }
}


// The unlock of a card with a static code, which the test knows and so can look for: 16 digits by
// rule; the new PIN may be longer on this card.
TEST(PinMemory, NoCopyOfTheNewPinOrTheCodeSurvivesTheUnlock) {
    for (int pinLength : kPinLengths) {
        SCOPED_TRACE(pinLength);
        MaskedPin code = MakeSecret(16, kHexAlphabet), newPin = MakeSecret(pinLength);
        ASSERT_TRUE(LoadCardWithCode(code, false));
        ASSERT_EQ(CountAllForms(code, true) + CountAllForms(newPin), 0u);
        Opened opened([] { return (int)ShowUnlockDialog(nullptr, L"Memscan Reader", nullptr); });
        ASSERT_NE(opened.dialog, nullptr);
        WaitUntil([&] { return FindDescendant(opened.dialog, IDC_RULE_BOX) != nullptr; });
        TypeInto(opened.dialog,
                 {{IDC_UL_RESPONSE_EDIT, &code}, {IDC_UL_NEW_PIN_EDIT, &newPin}, {IDC_UL_CONFIRM_EDIT, &newPin}});
        ClickAway(opened.dialog, IDOK);
        HWND success = WaitForDialogOver(opened.ThreadId(), opened.dialog);
        ASSERT_NE(success, nullptr);
        Click(success, IDOK);
        ASSERT_EQ(opened.Finish(), IDOK);
        RestoreDefaultProfile();  // the card itself keeps its new PIN, until it goes
        EXPECT_EQ(CountAllForms(code, true) + CountAllForms(newPin), 0u);
    }
}

TEST(PinMemory, NoCopyOfTheUnlockCodeSurvivesItsDisplay) {
    MaskedPin code = MakeSecret(36, kHexAlphabet);
    const MaskedPin shown = Grouped(code);
    ASSERT_TRUE(LoadCardWithCode(code, true));
    Opened opened([] { return (int)ShowUnlockCode(nullptr, L"Memscan Reader"); });
    ASSERT_NE(opened.dialog, nullptr);
    Click(opened.dialog, IDOK);
    ASSERT_EQ(opened.Finish(), 0);
    EXPECT_EQ(CountAllForms(code, true) + CountAllForms(shown, true), 0u);
    RestoreDefaultProfile();
}
