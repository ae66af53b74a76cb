#pragma once

// Reading MAPI properties of a libpff item. Every reader gives an empty
// value when the property is absent or cannot be read; none raises.

#include "core/DateTime.h"
#include "pst/PffHandle.h"

#include <QByteArray>
#include <QString>
#include <cstdint>
#include <optional>

namespace tessaly::pst {

// The entry of the given tag (without its type half) in a record set of the
// item, whatever its value type. Tags from 0x8000 up are named properties,
// found through the file's name-to-id map.
TPffRecordEntryHandle FindEntry(libpff_item_t* item, int set, uint32_t tag);

std::optional<uint32_t> ReadUInt32(libpff_item_t* item, int set, uint32_t tag);
// FILETIME (100 ns ticks since 1601, UTC); 0 when absent.
uint64_t ReadFiletime(libpff_item_t* item, int set, uint32_t tag);
// A FILETIME as local date-time, 0 when absent.
core::TDateTime ReadLocalDate(libpff_item_t* item, int set, uint32_t tag);
core::TDateTime FiletimeToLocal(uint64_t filetime);

// A string property as text, cut to at most maxChars UTF-16 characters.
QString ReadString(libpff_item_t* item, int set, uint32_t tag, qsizetype maxChars);
// A string property as UTF-8, cut to at most maxBytes bytes (never inside a
// character).
QString ReadUtf8(libpff_item_t* item, int set, uint32_t tag, qsizetype maxBytes);
QByteArray ReadBinary(libpff_item_t* item, int set, uint32_t tag);

// Bounds of the three string readers.
inline constexpr qsizetype ShortStringChars = 1023;
inline constexpr qsizetype NameChars = 1023;
inline constexpr qsizetype Utf8Bytes = 4095;

} // namespace tessaly::pst
