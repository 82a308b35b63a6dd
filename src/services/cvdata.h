// CVData: the typed value in which settings and card properties arrive.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

class CVData {
public:
    enum class Type { None, Byte, Integer, Unsigned, String, Bytes };

    CVData() = default;
    static CVData FromInteger(int64_t v) { CVData d; d.m_type = Type::Integer; d.m_integer = v; return d; }
    static CVData FromUnsigned(uint64_t v) { CVData d; d.m_type = Type::Unsigned; d.m_integer = (int64_t)v; return d; }
    static CVData FromByte(uint8_t v) { CVData d; d.m_type = Type::Byte; d.m_integer = v; return d; }
    static CVData FromString(std::wstring v) { CVData d; d.m_type = Type::String; d.m_string = std::move(v); return d; }
    static CVData FromBytes(std::vector<uint8_t> v) { CVData d; d.m_type = Type::Bytes; d.m_bytes = std::move(v); return d; }

    Type GetType() const { return m_type; }
    bool IsNumber() const { return m_type == Type::Byte || m_type == Type::Integer || m_type == Type::Unsigned; }
    int64_t AsInteger() const { return IsNumber() ? m_integer : 0; }
    const std::wstring& AsString() const { return m_string; }
    const std::vector<uint8_t>& AsBytes() const { return m_bytes; }

private:
    Type m_type = Type::None;
    int64_t m_integer = 0;
    std::wstring m_string;
    std::vector<uint8_t> m_bytes;
};
