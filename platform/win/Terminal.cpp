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

} // namespace tessaly::platform
