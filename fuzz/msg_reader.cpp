// The .msg reader on whole compound files: every field of what it gives.

#include "mail/FileMailMsg.h"
#include "mail/OutlookMessage.h"
#include "message_walk.h"

#include <QBuffer>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    QBuffer buffer;
    buffer.setData(QByteArray(reinterpret_cast<const char*>(data), qsizetype(size)));
    buffer.open(QIODevice::ReadOnly);
    if (!tessaly::mail::TOutlookMessage::IsStorage(buffer))
        return 0;
    try {
        tessaly::mail::TFileMailMsgRequest request(buffer);
        if (const auto message = request.Message())
            WalkMessage(*message);
    } catch (const tessaly::core::ETessalyError&) {
    }
    return 0;
}
