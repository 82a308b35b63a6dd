// After the PIN has been handed over and released, no copy of it may be left anywhere in the
// process: not in the dialog, the edit control, the library's strings or the heap.
#include <gtest/gtest.h>
#include <windows.h>
#include <bcrypt.h>
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
constexpr int kMaxPinLength = 40;

struct MaskedPin {
    int length;
    unsigned char masked[kMaxPinLength];
    volatile unsigned char key;
    wchar_t At(int i) const { return static_cast<wchar_t>(masked[i] ^ key); }
};

MaskedPin MakePin(int length) {
    unsigned char random[kMaxPinLength + 1];
    BCryptGenRandom(nullptr, random, sizeof(random), BCRYPT_USE_SYSTEM_PREFERRED_RNG);
    MaskedPin pin;
    pin.length = length;
    pin.key = static_cast<unsigned char>(random[kMaxPinLength] | 0x80);
    for (int i = 0; i < length; ++i) {
        // Letters and digits, so the PIN is unlike anything else in memory.
        static const char kAlphabet[] = "0123456789ABCDEFGHJKLMNPQRSTUVWXYZ";
        pin.masked[i] = static_cast<unsigned char>(kAlphabet[random[i] % (sizeof(kAlphabet) - 1)] ^ pin.key);
    }
    SecureZeroMemory(random, sizeof(random));
    return pin;
}

// Finds pin[from, from+count) as ANSI (step 1) or UTF-16LE (step 2) bytes in the process.
size_t CountCopies(const MaskedPin& pin, int from, int count, int step) {
    size_t found = 0;
    std::vector<unsigned char> chunk;
    MEMORY_BASIC_INFORMATION info;
    for (auto* address = static_cast<unsigned char*>(nullptr);
         VirtualQuery(address, &info, sizeof(info)) == sizeof(info);
         address = static_cast<unsigned char*>(info.BaseAddress) + info.RegionSize) {
        bool readable = info.State == MEM_COMMIT && !(info.Protect & (PAGE_GUARD | PAGE_NOACCESS)) &&
                        (info.Protect & (PAGE_READONLY | PAGE_READWRITE | PAGE_WRITECOPY | PAGE_EXECUTE_READ |
                                         PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY));
        if (!readable) continue;
        if (info.RegionSize > (256u << 20)) continue;  // reservations for the heap's growth, not data
        chunk.resize(info.RegionSize);
        SIZE_T read = 0;
        if (!ReadProcessMemory(GetCurrentProcess(), info.BaseAddress, chunk.data(), info.RegionSize, &read)) continue;
        size_t needle = static_cast<size_t>(count) * step;
        for (size_t at = 0; at + needle <= read; ++at) {
            int k = 0;
            for (; k < count; ++k) {
                wchar_t ch = pin.At(from + k);
                if (chunk[at + k * step] != (ch & 0xFF)) break;
                if (step == 2 && chunk[at + k * step + 1] != 0) break;
            }
            if (k == count) found++;
        }
    }
    SecureZeroMemory(chunk.data(), chunk.size());
    return found;
}

size_t CountAllForms(const MaskedPin& pin) {
    const int n = pin.length, tail = n / 2;  // a freed block may keep its tail only
    return CountCopies(pin, 0, n, 1) + CountCopies(pin, 0, n, 2) + CountCopies(pin, n - tail, tail, 1) +
           CountCopies(pin, n - tail, tail, 2);
}

}  // namespace

TEST(PinMemory, ScannerFindsAPlantedCopy) {
    MaskedPin pin = MakePin(kMaxPinLength);
    std::vector<wchar_t> planted(kMaxPinLength);
    for (int i = 0; i < kMaxPinLength; ++i) planted[i] = pin.At(i);
    EXPECT_GE(CountCopies(pin, 0, kMaxPinLength, 2), 1u);
    SecureZeroMemory(planted.data(), planted.size() * sizeof(wchar_t));
    EXPECT_EQ(CountCopies(pin, 0, kMaxPinLength, 2), 0u);
}

TEST(PinMemory, NoCopyOfTheTypedPinSurvivesTheCall) {
    for (int pinLength : kPinLengths) {
        SCOPED_TRACE(pinLength);
        MaskedPin pin = MakePin(pinLength);
        ASSERT_EQ(CountAllForms(pin), 0u);
        char* buffer = nullptr;
        unsigned length = 0;
        {
            Caller caller([&] {
                return GetPINFromUser(nullptr, L"Simulated Reader 0", 0, 4, 64, &buffer, &length, nullptr, nullptr, 0);
            });
            HWND dlg = WaitForDialog(caller);
            ASSERT_NE(dlg, nullptr);
            HWND edit = GetDlgItem(dlg, IDC_PIN_EDIT);
            for (int i = 0; i < pinLength; ++i) TypeChar(edit, pin.At(i));
            // A typo, taken back: the edit's own buffers must not keep it either.
            TypeChar(edit, L'x');
            Backspace(edit);
            Click(dlg, IDOK);
            ASSERT_TRUE(caller.Wait());
            ASSERT_EQ(caller.Result(), CVPIN_OK);
        }
        ASSERT_EQ(length, static_cast<unsigned>(pinLength));
        bool same = true;
        for (int i = 0; i < pinLength; ++i) same = same && buffer[i] == static_cast<char>(pin.At(i));
        EXPECT_TRUE(same);
        FreeGetPinBuffer(buffer, length);
        EXPECT_EQ(CountAllForms(pin), 0u);
    }
}

// Types both PINs (and a typo in the new one) into the PIN change window and presses OK.
static unsigned ChangePin(const MaskedPin& current, const MaskedPin& next, wchar_t* currentOut, unsigned currentSize,
                   unsigned& currentLength, wchar_t* nextOut, unsigned nextSize, unsigned& nextLength) {
    Caller caller([&] {
        return (int)GetChangePINInfoFromUser_s(0, 1, 4, 64, 0, 0, nextOut, nextSize, &nextLength, currentOut,
                                               currentSize, &currentLength, L"Simulated Reader 0", nullptr, 1,
                                               nullptr, nullptr, 0);
    });
    HWND dlg = WaitForDialog(caller);
    if (!dlg) return 0xDEADu;
    HWND currentEdit = FindDescendant(dlg, IDC_CURRENT_PIN_EDIT);
    HWND newEdit = FindDescendant(dlg, IDC_NEW_PIN_EDIT);
    HWND confirmEdit = FindDescendant(dlg, IDC_CONFIRM_PIN_EDIT);
    for (int i = 0; i < next.length; ++i) {
        TypeChar(currentEdit, current.At(i));
        TypeChar(newEdit, next.At(i));
        TypeChar(confirmEdit, next.At(i));
    }
    TypeChar(newEdit, L'x');
    Backspace(newEdit);
    Click(dlg, IDOK);
    return caller.Wait() ? static_cast<unsigned>(caller.Result()) : 0xDEADu;
}

TEST(PinMemory, NoCopyOfEitherPinSurvivesTheChange) {
    for (int pinLength : kPinLengths) {
        SCOPED_TRACE(pinLength);
        MaskedPin current = MakePin(pinLength), next = MakePin(pinLength);
        ASSERT_EQ(CountAllForms(current) + CountAllForms(next), 0u);
        wchar_t currentOut[64], nextOut[64];
        unsigned currentLength = 0, nextLength = 0;
        ASSERT_EQ(ChangePin(current, next, currentOut, 64, currentLength, nextOut, 64, nextLength), 0u);
        ASSERT_EQ(currentLength, static_cast<unsigned>(pinLength));
        ASSERT_EQ(nextLength, static_cast<unsigned>(pinLength));
        bool same = true;
        for (int i = 0; i < pinLength; ++i) same = same && currentOut[i] == current.At(i) && nextOut[i] == next.At(i);
        EXPECT_TRUE(same);
        SecureZeroMemory(currentOut, sizeof(currentOut));
        SecureZeroMemory(nextOut, sizeof(nextOut));
        EXPECT_EQ(CountAllForms(current), 0u);
        EXPECT_EQ(CountAllForms(next), 0u);
    }
}

// The current PIN fits the caller's buffer, the new one does not: the call fails and takes back
// what it had already copied.
TEST(PinMemory, AFailedChangeLeavesNoPinInTheCallersBuffers) {
    MaskedPin current = MakePin(16), next = MakePin(16);
    wchar_t currentOut[64], nextOut[8];
    unsigned currentLength = 0, nextLength = 0;
    EXPECT_EQ(ChangePin(current, next, currentOut, 64, currentLength, nextOut, 8, nextLength), 0xFFFFFFFFu);
    EXPECT_EQ(currentLength + nextLength, 0u);
    EXPECT_EQ(CountAllForms(current), 0u);
    EXPECT_EQ(CountAllForms(next), 0u);
}
