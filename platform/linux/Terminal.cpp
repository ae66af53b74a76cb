#include "platform/Terminal.h"

#include <unistd.h>

namespace tessaly::platform {

bool IsTerminal(std::FILE* stream)
{
    return stream && isatty(fileno(stream)) == 1;
}

} // namespace tessaly::platform

#include <cstdlib>
#include <initializer_list>

namespace tessaly::platform {

bool CanShowWindows()
{
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"}) {
        const char* value = std::getenv(name);
        if (value && *value)
            return true;
    }
    return false;
}

bool RunsAsAdministrator()
{
    return geteuid() == 0;
}

} // namespace tessaly::platform
