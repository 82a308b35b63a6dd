// Whatever held a secret reaches the heap's release wiped. This test program replaces the global
// allocation functions: while a test watches, every block given back is searched for the secret.
#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "secure_bytes.h"
#include "services/secstr.h"

namespace {

using Finder = bool (*)(const unsigned char* block, size_t bytes);
Finder g_finder = nullptr;
int g_found = 0;

void Inspect(void* block) {
    if (g_finder && block && g_finder(static_cast<unsigned char*>(block), malloc_usable_size(block))) ++g_found;
}

void* Allocate(size_t bytes) {
    if (void* block = std::malloc(bytes ? bytes : 1)) return block;
    throw std::bad_alloc();
}

void Release(void* block) noexcept {
    Inspect(block);
    std::free(block);
}

// Counts the blocks released from construction to destruction that still hold the secret.
class WatchReleases {
public:
    explicit WatchReleases(Finder finder) {
        g_finder = finder;
        g_found = 0;
    }
    ~WatchReleases() { g_finder = nullptr; }
    int Found() const { return g_found; }
};

// The secret texts are made of private-use characters, which nothing else in the process holds.
constexpr wchar_t kFirstSecretChar = 0xE000;
bool HoldsSecretText(const unsigned char* block, size_t bytes) {
    for (size_t at = 0; at + sizeof(wchar_t) <= bytes; at += sizeof(wchar_t)) {
        wchar_t ch;
        std::memcpy(&ch, block + at, sizeof ch);
        if (ch >= kFirstSecretChar && ch < kFirstSecretChar + 0x100) return true;
    }
    return false;
}

std::wstring SecretText(int length) {
    std::wstring text;
    for (int i = 0; i < length; ++i) text += static_cast<wchar_t>(kFirstSecretChar + (i * 7) % 0x100);
    return text;
}

constexpr unsigned char kSecretBytes[] = {0xC5, 0xEC, 0x2E, 0x7B};
bool HoldsSecretBytes(const unsigned char* block, size_t bytes) {
    return memmem(block, bytes, kSecretBytes, sizeof kSecretBytes) != nullptr;
}

}  // namespace

void* operator new(size_t bytes) { return Allocate(bytes); }
void* operator new[](size_t bytes) { return Allocate(bytes); }
void operator delete(void* block) noexcept { Release(block); }
void operator delete[](void* block) noexcept { Release(block); }
void operator delete(void* block, size_t) noexcept { Release(block); }
void operator delete[](void* block, size_t) noexcept { Release(block); }

TEST(SecureRelease, TheWatchSeesAnUnwipedBlock) {
    WatchReleases watch(HoldsSecretText);
    delete[] new wchar_t[40]{kFirstSecretChar};
    EXPECT_EQ(watch.Found(), 1);
}

// Typed one character at a time the string grows through several buffers; every way a buffer is
// let go is taken at least once. Long secrets as well as short ones: a large block leaves the
// small-block pools.
TEST(SecureRelease, NoBufferACSecStrLetsGoHoldsItsText) {
    for (int length : {1, 16, 40, 300, 2000}) {
        const std::wstring text = SecretText(length);
        WatchReleases watch(HoldsSecretText);
        {
            CSecStr typed;
            for (wchar_t ch : text) typed.AppendChar(ch);
            CSecStr copy(typed);
            typed.Insert(1, copy.GetString(), copy.GetLength());
            CSecStr moved(std::move(copy));
            moved = CSecStr(L"other");
            typed.Format(L"%ls%ls", typed.GetString(), L"!");
            typed.Replace(L"!", text.c_str());
            CSecStr tail = typed.Right(3);
            tail = typed.Mid(1);
        }
        EXPECT_EQ(watch.Found(), 0) << "secret of " << length << " characters";
    }
}

TEST(SecureRelease, SimulatorSecretBytesAreWipedBeforeRelease) {
    std::vector<uint8_t> bytes;
    for (int i = 0; i < 40; ++i) bytes.insert(bytes.end(), std::begin(kSecretBytes), std::end(kSecretBytes));
    WatchReleases watch(HoldsSecretBytes);
    {
        sim::SecureBytes key(std::move(bytes));
        sim::SecureBytes copy(key);
        sim::SecureBytes other;
        other = copy;
        other = std::move(key);
        copy.Clear();
    }
    EXPECT_EQ(watch.Found(), 0);
}
