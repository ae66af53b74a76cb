#include "pst/PffProperty.h"

#include <QDateTime>
#include <vector>

namespace tessaly::pst {

namespace {

} // namespace

TPffRecordEntryHandle FindEntry(libpff_item_t* item, int set, uint32_t tag)
{
    TPffRecordEntryHandle entry;
    if (!item)
        return entry;
    TPffRecordSetHandle recordSet;
    if (libpff_item_get_record_set_by_index(item, set, recordSet.Out(), nullptr) != 1 || !recordSet)
        return entry;
    if (libpff_record_set_get_entry_by_type(recordSet.Get(), tag, 0, entry.Out(),
            LIBPFF_ENTRY_VALUE_FLAG_MATCH_ANY_VALUE_TYPE, nullptr)
        != 1)
        entry.Reset();
    return entry;
}

std::optional<uint32_t> ReadUInt32(libpff_item_t* item, int set, uint32_t tag)
{
    const auto entry = FindEntry(item, set, tag);
    uint32_t value = 0;
    if (!entry || libpff_record_entry_get_data_as_32bit_integer(entry.Get(), &value, nullptr) != 1)
        return std::nullopt;
    return value;
}

uint64_t ReadFiletime(libpff_item_t* item, int set, uint32_t tag)
{
    const auto entry = FindEntry(item, set, tag);
    uint64_t value = 0;
    if (!entry || libpff_record_entry_get_data_as_filetime(entry.Get(), &value, nullptr) != 1)
        return 0;
    return value;
}

core::TDateTime FiletimeToLocal(uint64_t filetime)
{
    const QDateTime utc = core::FiletimeToQDateTime(filetime);
    if (!utc.isValid())
        return 0;
    return core::QDateTimeToDateTime(utc.toLocalTime());
}

core::TDateTime ReadLocalDate(libpff_item_t* item, int set, uint32_t tag)
{
    return FiletimeToLocal(ReadFiletime(item, set, tag));
}

QString ReadString(libpff_item_t* item, int set, uint32_t tag, qsizetype maxChars)
{
    const auto entry = FindEntry(item, set, tag);
    size_t size = 0; // characters including the terminating zero
    if (!entry || libpff_record_entry_get_data_as_utf16_string_size(entry.Get(), &size, nullptr) != 1 || size == 0)
        return {};
    std::vector<uint16_t> buffer(size + 1, 0);
    if (libpff_record_entry_get_data_as_utf16_string(entry.Get(), buffer.data(), buffer.size(), nullptr) != 1)
        return {};
    QString text = QString::fromUtf16(reinterpret_cast<const char16_t*>(buffer.data()));
    if (text.size() > maxChars) {
        text.truncate(maxChars);
        if (!text.isEmpty() && text.back().isHighSurrogate())
            text.chop(1);
    }
    return text;
}

QString ReadUtf8(libpff_item_t* item, int set, uint32_t tag, qsizetype maxBytes)
{
    const auto entry = FindEntry(item, set, tag);
    size_t size = 0; // bytes including the terminating zero
    if (!entry || libpff_record_entry_get_data_as_utf8_string_size(entry.Get(), &size, nullptr) != 1 || size == 0)
        return {};
    QByteArray buffer(qsizetype(size) + 1, '\0');
    if (libpff_record_entry_get_data_as_utf8_string(
            entry.Get(), reinterpret_cast<uint8_t*>(buffer.data()), size_t(buffer.size()), nullptr)
        != 1)
        return {};
    QByteArray bytes(buffer.constData()); // up to the terminating zero
    if (bytes.size() > maxBytes) {
        qsizetype cut = maxBytes;
        while (cut > 0 && (uchar(bytes[cut]) & 0xC0) == 0x80)
            --cut; // not inside a character
        bytes.truncate(cut);
    }
    return QString::fromUtf8(bytes);
}

QByteArray ReadBinary(libpff_item_t* item, int set, uint32_t tag)
{
    const auto entry = FindEntry(item, set, tag);
    size_t size = 0;
    if (!entry || libpff_record_entry_get_data_size(entry.Get(), &size, nullptr) != 1 || size == 0)
        return {};
    QByteArray data(qsizetype(size), '\0');
    if (libpff_record_entry_get_data(entry.Get(), reinterpret_cast<uint8_t*>(data.data()), size, nullptr) != 1)
        return {};
    return data;
}

} // namespace tessaly::pst
