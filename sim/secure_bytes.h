// Bytes that are secret (administrator keys, unlock codes, challenges): wiped whenever the
// storage is let go, like CSecStr does for text.
#pragma once
#include <cstddef>
#include <cstdint>
#include <vector>

#include "services/secstr.h"

namespace sim {

class SecureBytes {
  public:
    SecureBytes() = default;
    explicit SecureBytes(std::vector<uint8_t> bytes) : m_bytes(std::move(bytes)) {}
    SecureBytes(const SecureBytes& other) : m_bytes(other.m_bytes) {}
    SecureBytes(SecureBytes&& other) noexcept : m_bytes(std::move(other.m_bytes)) {}
    ~SecureBytes() { Clear(); }

    SecureBytes& operator=(const SecureBytes& other) {
        if (this != &other) {
            Clear();
            m_bytes = other.m_bytes;
        }
        return *this;
    }
    SecureBytes& operator=(SecureBytes&& other) noexcept {
        if (this != &other) {
            Clear();
            m_bytes = std::move(other.m_bytes);
        }
        return *this;
    }

    void Clear() {
        if (!m_bytes.empty()) SecureWipe(m_bytes.data(), m_bytes.size());
        m_bytes.clear();
    }
    bool Empty() const { return m_bytes.empty(); }
    size_t Size() const { return m_bytes.size(); }
    const std::vector<uint8_t>& Bytes() const { return m_bytes; }
    bool operator==(const SecureBytes& other) const { return m_bytes == other.m_bytes; }

  private:
    std::vector<uint8_t> m_bytes;
};

} // namespace sim
