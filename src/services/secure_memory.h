// Memory for secrets. Blocks come from pages that are kept out of the page file where the system
// allows it (Windows: committed, locked pages; natively: the ordinary heap), and every block is
// overwritten with zeros before it is given back. Portable header: no Windows headers.
#pragma once
#include <cstddef>

// Overwrites bytes in a way the optimiser may not drop.
void SecureWipe(void* data, size_t bytes);

// A zeroed block of at least `bytes` bytes; throws std::bad_alloc when none is left.
void* SecureAlloc(size_t bytes);
// Wipes the first `bytes` bytes of a block from SecureAlloc (the size it was asked for), then
// gives the block back. A null block is ignored.
void SecureFree(void* block, size_t bytes);
