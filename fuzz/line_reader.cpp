// The line reader and line list on arbitrary bytes: every byte comes back in
// some line, and line ends never do.

#include "mail/MailStringList.h"

#include <QBuffer>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    QBuffer buffer;
    buffer.setData(bytes);
    buffer.open(QIODevice::ReadOnly);
    const int maxLines = size > 0 ? data[0] % 4 : 0;
    tessaly::mail::TMailStringList list;
    list.LoadFromStream(buffer, maxLines);

    if (maxLines > 0 && list.Count() > maxLines)
        std::abort();
    qsizetype content = 0;
    for (const auto& line : list.Lines()) {
        if (line.contains('\r') || line.contains('\n'))
            std::abort();
        content += line.size();
    }
    // Read to the end, the lines hold every byte but the line ends.
    if (maxLines == 0) {
        qsizetype expected = 0;
        for (const char c : bytes)
            expected += (c != '\r' && c != '\n');
        if (content != expected)
            std::abort();
    }
    return 0;
}
