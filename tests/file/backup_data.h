// backup_data.h - builds a file's backup data as the system would hand it out.
#ifndef VORN_TESTS_FILE_BACKUP_DATA_H
#define VORN_TESTS_FILE_BACKUP_DATA_H

#include "file/unit_text.h"

#include <cstdint>
#include <string>
#include <vector>

namespace vorn_test {

using Bytes = std::vector<uint8_t>;

constexpr uint32_t kBackupData = 1;           // the unnamed stream
constexpr uint32_t kBackupSecurity = 3;       // the security descriptor
constexpr uint32_t kBackupAlternateData = 4;  // a named stream

inline void Put(Bytes* bytes, uint64_t value, int count)
{
    for (int i = 0; i < count; ++i) bytes->push_back(static_cast<uint8_t>(value >> (8 * i)));
}

// A header alone, with whatever it claims.
inline Bytes Header(uint32_t kind, uint64_t dataBytes, uint32_t nameBytes)
{
    Bytes bytes;
    Put(&bytes, kind, 4);
    Put(&bytes, 0, 4);
    Put(&bytes, dataBytes, 8);
    Put(&bytes, nameBytes, 4);
    return bytes;
}

inline Bytes NameBytes(const UnitText& name)
{
    Bytes bytes;
    for (const wchar_t unit : name) Put(&bytes, unit, 2);
    return bytes;
}

inline Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

// A whole stream: header, name, data.
inline Bytes Stream(uint32_t kind, const UnitText& name, size_t dataBytes)
{
    const Bytes nameBytes = NameBytes(name);
    return Header(kind, dataBytes, static_cast<uint32_t>(nameBytes.size())) + nameBytes +
           Bytes(dataBytes, 0xDA);
}

inline Bytes UnnamedStream(size_t dataBytes)
{
    return Stream(kBackupData, {}, dataBytes);
}

inline Bytes NamedStream(const UnitText& name, size_t dataBytes)
{
    return Stream(kBackupAlternateData, name, dataBytes);
}

}  // namespace vorn_test

#endif
