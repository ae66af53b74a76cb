#include "platform/CodePage.h"

#include <windows.h>

namespace tessaly::platform {

int DefaultAnsiCodePage()
{
    return int(GetACP());
}

} // namespace tessaly::platform
