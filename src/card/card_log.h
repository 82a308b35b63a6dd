// Logging of the card layer: its own tag, and pointers shown the way its log lines always have
// (the low 32 bits, "%#x").
#pragma once
#include <cstdint>

#include "services/log.h"

#define COBLOG(level, ...) cvlogLog(CVLOG_TAG_CARD, level, __VA_ARGS__)

inline unsigned LogPtr(const void* p) {
    return static_cast<unsigned>(reinterpret_cast<uintptr_t>(p));
}
