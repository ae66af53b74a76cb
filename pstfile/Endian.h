#pragma once

// Little-endian reading and writing of the integers the file formats use.
// Reads take the bytes as they are, whatever their alignment.

#include <QByteArray>
#include <QString>
#include <QUuid>
#include <cstdint>
#include <cstring>

namespace tessaly::pstfile {

inline uint16_t Get16(const void* p)
{
    const auto* b = static_cast<const uint8_t*>(p);
    return uint16_t(b[0] | b[1] << 8);
}
inline uint32_t Get32(const void* p)
{
    const auto* b = static_cast<const uint8_t*>(p);
    return uint32_t(b[0]) | uint32_t(b[1]) << 8 | uint32_t(b[2]) << 16 | uint32_t(b[3]) << 24;
}
inline uint64_t Get64(const void* p)
{
    const auto* b = static_cast<const uint8_t*>(p);
    return uint64_t(Get32(b)) | uint64_t(Get32(b + 4)) << 32;
}

inline void Put16(void* p, uint16_t v)
{
    auto* b = static_cast<uint8_t*>(p);
    b[0] = uint8_t(v);
    b[1] = uint8_t(v >> 8);
}
inline void Put32(void* p, uint32_t v)
{
    auto* b = static_cast<uint8_t*>(p);
    for (int i = 0; i < 4; ++i)
        b[i] = uint8_t(v >> (8 * i));
}
inline void Put64(void* p, uint64_t v)
{
    Put32(p, uint32_t(v));
    Put32(static_cast<uint8_t*>(p) + 4, uint32_t(v >> 32));
}

inline void Add16(QByteArray& b, uint16_t v)
{
    char p[2];
    Put16(p, v);
    b.append(p, 2);
}
inline void Add32(QByteArray& b, uint32_t v)
{
    char p[4];
    Put32(p, v);
    b.append(p, 4);
}
inline void Add64(QByteArray& b, uint64_t v)
{
    char p[8];
    Put64(p, v);
    b.append(p, 8);
}

inline QByteArray Le32(uint32_t v)
{
    QByteArray b;
    Add32(b, v);
    return b;
}

inline QByteArray Le64(uint64_t v)
{
    QByteArray b;
    Add64(b, v);
    return b;
}

// Text as UTF-16LE code units, without a terminator.
inline QByteArray Utf16Le(const QString& text)
{
    QByteArray b;
    b.reserve(text.size() * 2);
    for (QChar c : text) {
        b.append(char(c.unicode() & 0xFF));
        b.append(char(c.unicode() >> 8));
    }
    return b;
}

// A GUID as stored: data1 to data3 little-endian, then data4 as it is.
inline QByteArray GuidBytes(const QUuid& id)
{
    QByteArray b;
    Add32(b, id.data1);
    Add16(b, id.data2);
    Add16(b, id.data3);
    b.append(reinterpret_cast<const char*>(id.data4), 8);
    return b;
}

} // namespace tessaly::pstfile
