// The vCard reader on arbitrary bytes: every contact field, and the contact
// rendered as the preview shows it.

#include "mail/VCard.h"
#include "message_walk.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const tessaly::mail::TVCardContact contact(QByteArray(reinterpret_cast<const char*>(data), qsizetype(size)));
    for (int field = 0; field < tessaly::mail::cfCount; ++field)
        (void)contact.Value(field);
    WalkMessage(contact);
    return 0;
}
