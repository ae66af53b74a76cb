#include "pst/PSTProperty.h"

#include "pstfile/Endian.h"

#include <QDateTime>

namespace tessaly::pst {

namespace {

// The text up to its first NUL.
QString Text(const pstfile::TProperties& props, uint32_t tag)
{
    QString text = props.String(uint16_t(tag)).value_or(QString());
    const qsizetype nul = text.indexOf(QChar(0));
    if (nul >= 0)
        text.truncate(nul);
    return text;
}

} // namespace

bool HasProperty(const pstfile::TProperties& props, uint32_t tag) { return props.Has(uint16_t(tag)); }

std::optional<uint32_t> ReadUInt32(const pstfile::TProperties& props, uint32_t tag)
{
    return props.Int32(uint16_t(tag));
}

uint64_t ReadFiletime(const pstfile::TProperties& props, uint32_t tag) { return props.Filetime(uint16_t(tag)); }

core::TDateTime ReadLocalDate(const pstfile::TProperties& props, uint32_t tag)
{
    return core::FiletimeToLocal(ReadFiletime(props, tag));
}

QString ReadString(const pstfile::TProperties& props, uint32_t tag, qsizetype maxChars)
{
    QString text = Text(props, tag);
    if (text.size() > maxChars) {
        text.truncate(maxChars);
        if (!text.isEmpty() && text.back().isHighSurrogate())
            text.chop(1);
    }
    return text;
}

QString ReadUtf8(const pstfile::TProperties& props, uint32_t tag, qsizetype maxBytes)
{
    QByteArray bytes = Text(props, tag).toUtf8();
    if (bytes.size() > maxBytes) {
        qsizetype cut = maxBytes;
        while (cut > 0 && (uchar(bytes[cut]) & 0xC0) == 0x80)
            --cut; // not inside a character
        bytes.truncate(cut);
    }
    return QString::fromUtf8(bytes);
}

QByteArray ReadBinary(const pstfile::TProperties& props, uint32_t tag)
{
    const auto entry = props.Find(uint16_t(tag));
    if (!entry)
        return {};
    return props.Value(*entry).value_or(QByteArray());
}

} // namespace tessaly::pst
