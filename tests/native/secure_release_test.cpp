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

// The secrets are made of private-use characters, which nothing else in the process holds.
constexpr wchar_t kFirstSecretChar = 0xE000;
bool g_watching = false;
int g_found = 0; // blocks released while watching that still hold a secret character

// Watches the releases from construction to destruction.
struct WatchReleases {
    WatchReleases() {
        g_found = 0;
        g_watching = true;
    }
    ~WatchReleases() { g_watching = false; }
};

std::wstring SecretText(int length) {
    std::wstring text;
    for (int i = 0; i < length; ++i) text += static_cast<wchar_t>(kFirstSecretChar + (i * 7) % 0x100);
    return text;
}

void* Allocate(size_t bytes) {
    if (void* block = std::malloc(bytes ? bytes : 1)) return block;
    throw std::bad_alloc();
}

void Release(void* block) noexcept {
    if (g_watching && block) {
        const unsigned char* bytes = static_cast<unsigned char*>(block);
        for (size_t at = 0; at + sizeof(wchar_t) <= malloc_usable_size(block); at += sizeof(wchar_t)) {
            wchar_t ch;
            std::memcpy(&ch, bytes + at, sizeof ch);
            if (ch >= kFirstSecretChar && ch < kFirstSecretChar + 0x100) {
                ++g_found;
                break;
            }
        }
    }
    std::free(block);
}

}  // namespace

void* operator new(size_t bytes) { return Allocate(bytes); }
void* operator new[](size_t bytes) { return Allocate(bytes); }
void operator delete(void* block) noexcept { Release(block); }
void operator delete[](void* block) noexcept { Release(block); }
void operator delete(void* block, size_t) noexcept { Release(block); }
void operator delete[](void* block, size_t) noexcept { Release(block); }

TEST(SecureRelease, TheWatchSeesAnUnwipedBlock) {
    WatchReleases watch;
    delete[] new wchar_t[40]{kFirstSecretChar};
    EXPECT_EQ(g_found, 1);
}

// Typed one character at a time the string grows through several buffers; every way a buffer is
// let go is taken at least once. Long secrets as well as short ones: a large block leaves the
// small-block pools.
TEST(SecureRelease, NoBufferACSecStrLetsGoHoldsItsText) {
    for (int length : {1, 16, 40, 300, 2000}) {
        const std::wstring text = SecretText(length);
        WatchReleases watch;
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
        EXPECT_EQ(g_found, 0) << "secret of " << length << " characters";
    }
}

TEST(SecureRelease, SimulatorSecretBytesAreWipedBeforeRelease) {
    const std::wstring text = SecretText(40);
    std::vector<uint8_t> bytes(reinterpret_cast<const uint8_t*>(text.data()),
                               reinterpret_cast<const uint8_t*>(text.data() + text.size()));
    WatchReleases watch;
    {
        sim::SecureBytes key(std::move(bytes));
        sim::SecureBytes copy(key);
        sim::SecureBytes other;
        other = copy;
        other = std::move(key);
        copy.Clear();
    }
    EXPECT_EQ(g_found, 0);
}
