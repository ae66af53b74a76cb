// Compressed RTF decompression on arbitrary bytes: a result or ERtfError.

#include "core/Rtf.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    try {
        const QByteArray rtf = tessaly::core::DecompressRtf(QByteArray(reinterpret_cast<const char*>(data), qsizetype(size)));
        (void)tessaly::core::RtfToHtml(rtf);
    } catch (const tessaly::core::ERtfError&) {
    }
    return 0;
}
