#pragma once

// Reading the MAPI properties of an object of a data file. Every reader
// gives an empty value when the property is absent, of another type, or
// cannot be read; none raises. Ids from 0x8000 up are named properties,
// found through the file's name-to-id map.

#include "core/DateTime.h"
#include "pstfile/Reader.h"

#include <QByteArray>
#include <QString>
#include <cstdint>
#include <optional>

namespace tessaly::pst {

bool HasProperty(const pstfile::TProperties& props, uint32_t tag);
std::optional<uint32_t> ReadUInt32(const pstfile::TProperties& props, uint32_t tag);
// FILETIME (100 ns ticks since 1601, UTC); 0 when absent.
uint64_t ReadFiletime(const pstfile::TProperties& props, uint32_t tag);
// A FILETIME as local date-time, 0 when absent.
core::TDateTime ReadLocalDate(const pstfile::TProperties& props, uint32_t tag);

// A string property as text up to its first NUL, cut to at most maxChars
// UTF-16 characters.
QString ReadString(const pstfile::TProperties& props, uint32_t tag, qsizetype maxChars);
// The same cut to at most maxBytes bytes of UTF-8 (never inside a character).
QString ReadUtf8(const pstfile::TProperties& props, uint32_t tag, qsizetype maxBytes);
QByteArray ReadBinary(const pstfile::TProperties& props, uint32_t tag);

// Bounds of the three string readers.
inline constexpr qsizetype ShortStringChars = 1023;
inline constexpr qsizetype NameChars = 1023;
inline constexpr qsizetype Utf8Bytes = 4095;

} // namespace tessaly::pst
