// Charset conversion and detection on arbitrary bytes; the first byte picks
// the charset or code page.

#include "core/Charset.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace tessaly::core;
    if (size == 0)
        return 0;
    static const char* const Charsets[] = {"utf-8", "windows-1252", "Shift_JIS", "ISO-2022-JP", "ks_c_5601-1987",
        "gb2312", "big5", "koi8-r", "utf-16le", "UTF-7", "hz-gb-2312", "x-no-such", "", "euc-jp"};
    static const int CodePages[] = {1252, 65001, 932, 936, 949, 950, 50220, 1200, 20127, 0, -5, 99999};
    const QByteArray bytes(reinterpret_cast<const char*>(data) + 1, qsizetype(size - 1));
    const unsigned pick = data[0];
    const QString text = pick % 2 == 0
        ? DecodeCharset(bytes, QLatin1String(Charsets[(pick / 2) % std::size(Charsets)]))
        : DecodeCodePage(bytes, CodePages[(pick / 2) % std::size(CodePages)]);
    // One byte never gives more than two UTF-16 units (UTF-7 aside, which
    // packs more into fewer bytes; bounded by four).
    if (text.size() > 4 * bytes.size() + 4)
        std::abort();
    (void)DetectCharset(bytes, pick & 4);
    (void)IsValidUtf8(bytes);
    return 0;
}
