// Apple Mail's .emlx files through the message-file entry point: the byte
// count line, the message it counts, and the property list after it. Every
// field of the message that comes out.

#include "core/Exceptions.h"
#include "mail/FileMailMsg.h"
#include "message_walk.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("message.emlx"));
    {
        QFile out(path);
        if (!dir.isValid() || !out.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return 0;
        out.write(reinterpret_cast<const char*>(data), qint64(size));
    }
    try {
        tessaly::mail::TFileMailMsgRequest request(path);
        if (const auto message = request.Message())
            WalkMessage(*message);
    } catch (const tessaly::core::ETessalyError&) {
    }
    return 0;
}
