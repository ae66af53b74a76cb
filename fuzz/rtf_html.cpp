// Recovery of encapsulated HTML on arbitrary RTF text.

#include "core/Rtf.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray rtf(reinterpret_cast<const char*>(data), qsizetype(size));
    (void)tessaly::core::IsHtmlEncapsulatedRtf(rtf);
    (void)tessaly::core::RtfToHtml(rtf);
    return 0;
}
