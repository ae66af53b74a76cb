#include "platform/Terminal.h"

#include <io.h>

namespace tessaly::platform {

bool IsTerminal(std::FILE* stream)
{
    return stream && _isatty(_fileno(stream)) != 0;
}

} // namespace tessaly::platform

namespace tessaly::platform {

bool CanShowWindows()
{
    return true;
}

// The sandbox of the HTML view runs for administrators on Windows.
bool RunsAsAdministrator()
{
    return false;
}

} // namespace tessaly::platform
