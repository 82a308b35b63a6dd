#include "cng_crypto_win.h"

#include <windows.h>
#include <bcrypt.h>

#include <cstring>
#include <stdexcept>

#include "services/secstr.h"

namespace sim {

namespace {

bool Succeeded(NTSTATUS status) {
    return status >= 0;
}

class Provider {
  public:
    explicit Provider(const wchar_t* algorithm) {
        if (!Succeeded(BCryptOpenAlgorithmProvider(&m_handle, algorithm, nullptr, 0))) m_handle = nullptr;
    }
    ~Provider() {
        if (m_handle) BCryptCloseAlgorithmProvider(m_handle, 0);
    }
    Provider(const Provider&) = delete;
    Provider& operator=(const Provider&) = delete;
    BCRYPT_ALG_HANDLE Get() const { return m_handle; }

  private:
    BCRYPT_ALG_HANDLE m_handle = nullptr;
};

class Key {
  public:
    Key(BCRYPT_ALG_HANDLE algorithm, const std::vector<uint8_t>& secret) {
        if (!Succeeded(BCryptGenerateSymmetricKey(algorithm, &m_handle, nullptr, 0,
                                                  const_cast<PUCHAR>(secret.data()),
                                                  static_cast<ULONG>(secret.size()), 0)))
            m_handle = nullptr;
    }
    ~Key() {
        if (m_handle) BCryptDestroyKey(m_handle); // CNG wipes its copy of the key
    }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;
    BCRYPT_KEY_HANDLE Get() const { return m_handle; }

  private:
    BCRYPT_KEY_HANDLE m_handle = nullptr;
};

} // namespace

void CngCrypto::Random(uint8_t* out, size_t count) {
    if (count == 0) return;
    if (!out ||
        !Succeeded(BCryptGenRandom(nullptr, out, static_cast<ULONG>(count), BCRYPT_USE_SYSTEM_PREFERRED_RNG)))
        throw std::runtime_error("no random numbers");
}

bool CngCrypto::Encrypt3DesBlock(const std::vector<uint8_t>& key, const uint8_t in[8], uint8_t out[8]) {
    if (!in || !out || (key.size() != 16 && key.size() != 24)) return false;
    // Two-key 3DES is three-key 3DES with K3 = K1. Wine 8 has no BCRYPT_3DES_112_ALGORITHM
    // provider, so both key sizes go through the three-key one.
    std::vector<uint8_t> fullKey(24);
    memcpy(fullKey.data(), key.data(), key.size());
    if (key.size() == 16) memcpy(fullKey.data() + 16, key.data(), 8);
    bool ok = false;
    Provider provider(BCRYPT_3DES_ALGORITHM);
    if (provider.Get()) {
        Key handle(provider.Get(), fullKey);
        // Wine refuses the ECB chaining mode; one block in CBC with a zero IV is the same block,
        // so the provider's default (CBC) serves on Windows and Wine alike.
        UCHAR iv[8] = {};
        UCHAR block[8];
        memcpy(block, in, sizeof block);
        ULONG written = 0;
        ok = handle.Get() &&
             Succeeded(BCryptEncrypt(handle.Get(), block, sizeof block, nullptr, iv, sizeof iv, out, 8,
                                     &written, 0)) &&
             written == 8;
        SecureWipe(block, sizeof block);
    }
    SecureWipe(fullKey.data(), fullKey.size());
    return ok;
}

} // namespace sim
