// Secure blocks on Windows: carved from committed pages that are locked into memory, so that a
// secret never reaches the page file. Small blocks (the PINs and texts of the dialogs) share
// 64 KB chunks through one free list per power-of-two size; a larger block gets pages of its own.
// When the system refuses the lock (beyond the process's working-set quota) the pages serve all
// the same: a refused lock is a weaker guarantee, not an error for the user.
// Chunks are never returned: they are reused, and their number follows the most secrets ever
// held at once, which for a PIN dialog is a handful of pages.
#include "services/secure_memory.h"

#include <windows.h>

#include <new>

namespace {

constexpr size_t kSmallest = 32;
constexpr int kSizeClasses = 8;  // 32 bytes to 4 KB
constexpr size_t kChunkBytes = 64 * 1024;

struct FreeBlock {
    FreeBlock* next;
};

SRWLOCK g_lock = SRWLOCK_INIT;
FreeBlock* g_free[kSizeClasses] = {};
unsigned char* g_chunkNext = nullptr;
unsigned char* g_chunkEnd = nullptr;

void* LockedPages(size_t bytes) {
    void* pages = VirtualAlloc(nullptr, bytes, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
    if (pages) VirtualLock(pages, bytes);
    return pages;
}

int SizeClass(size_t bytes) {
    for (int c = 0; c < kSizeClasses; ++c)
        if (bytes <= (kSmallest << c)) return c;
    return -1;
}

// Called with the lock held; null when the system has no pages left.
void* TakeSmallBlock(int sizeClass) {
    if (FreeBlock* block = g_free[sizeClass]) {
        g_free[sizeClass] = block->next;
        block->next = nullptr;  // the rest of the block was wiped when it was freed
        return block;
    }
    const size_t size = kSmallest << sizeClass;
    if (static_cast<size_t>(g_chunkEnd - g_chunkNext) < size) {
        auto* chunk = static_cast<unsigned char*>(LockedPages(kChunkBytes));
        if (!chunk) return nullptr;
        g_chunkNext = chunk;
        g_chunkEnd = chunk + kChunkBytes;
    }
    void* block = g_chunkNext;
    g_chunkNext += size;
    return block;
}

} // namespace

void* SecureAlloc(size_t bytes) {
    const int sizeClass = SizeClass(bytes);
    void* block = nullptr;
    if (sizeClass < 0) {
        block = LockedPages(bytes);
    } else {
        AcquireSRWLockExclusive(&g_lock);
        block = TakeSmallBlock(sizeClass);
        ReleaseSRWLockExclusive(&g_lock);
    }
    if (!block) throw std::bad_alloc();
    return block;
}

void SecureFree(void* block, size_t bytes) {
    if (!block) return;
    SecureWipe(block, bytes);
    const int sizeClass = SizeClass(bytes);
    if (sizeClass < 0) {
        VirtualUnlock(block, bytes);
        VirtualFree(block, 0, MEM_RELEASE);
        return;
    }
    AcquireSRWLockExclusive(&g_lock);
    auto* freed = static_cast<FreeBlock*>(block);
    freed->next = g_free[sizeClass];
    g_free[sizeClass] = freed;
    ReleaseSRWLockExclusive(&g_lock);
}
