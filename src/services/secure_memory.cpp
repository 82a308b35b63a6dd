// The wipe, and the native build's secure blocks. The Windows blocks are in secure_memory_win.cpp.
#include "services/secure_memory.h"

void SecureWipe(void* data, size_t bytes) {
    // Stores through a volatile pointer are observable behaviour: the compiler must keep them
    // even though the memory is about to be freed.
    volatile unsigned char* p = static_cast<volatile unsigned char*>(data);
    for (size_t i = 0; i < bytes; ++i)
        p[i] = 0;
}

#ifndef _WIN32
// Natively the blocks come from the heap: nothing here is paged to a shared disk, and the tests
// watch the heap's array release to see that every block arrives there wiped.
void* SecureAlloc(size_t bytes) {
    return new unsigned char[bytes ? bytes : 1]();
}

void SecureFree(void* block, size_t bytes) {
    if (!block) return;
    SecureWipe(block, bytes);
    delete[] static_cast<unsigned char*>(block);
}
#endif
