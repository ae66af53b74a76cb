// The internet-message reader on arbitrary bytes: every field of the result.

#include "mail/CleverMail.h"
#include "message_walk.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const auto message = tessaly::mail::ParseEMLMessage(QByteArray(reinterpret_cast<const char*>(data), qsizetype(size)));
    WalkMessage(*message);
    return 0;
}
