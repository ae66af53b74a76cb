#pragma once

// RTF helpers: decompression of compressed RTF ([MS-OXRTFCP]) and recovery
// of the HTML that an RTF body encapsulates ([MS-OXRTFEX]).

#include "core/Exceptions.h"

#include <QByteArray>
#include <QString>
#include <optional>

namespace tessaly::core {

class ERtfError : public ETessalyError {
public:
    using ETessalyError::ETessalyError;
};

// Decompresses PidTagRtfCompressed data, both the "LZFu" and the "MELA"
// (stored) form. Throws ERtfError for a damaged stream: a bad header, a CRC
// that does not match, or a reference outside the written data.
QByteArray DecompressRtf(const QByteArray& data);

// True when the RTF header carries \fromhtml1: the document encapsulates HTML.
bool IsHtmlEncapsulatedRtf(const QByteArray& rtf);

// The HTML that the RTF encapsulates; nothing when it encapsulates no HTML.
std::optional<QString> RtfToHtml(const QByteArray& rtf);

} // namespace tessaly::core
