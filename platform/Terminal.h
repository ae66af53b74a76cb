#pragma once

#include <cstdio>

namespace tessaly::platform {

// True when the stream is attached to a terminal (not a pipe, file or nothing).
bool IsTerminal(std::FILE* stream);

} // namespace tessaly::platform

namespace tessaly::platform {

// True when a window can be shown: a display is there to show it on.
bool CanShowWindows();

// True when the program runs with the rights of the system's administrator
// (root), where the HTML view's sandbox refuses to start.
bool RunsAsAdministrator();

} // namespace tessaly::platform
