#pragma once

namespace tessaly::platform {

// The Windows code page that 8-bit text of this user most likely is in:
// the system's ANSI code page on Windows, a guess from the locale elsewhere.
int DefaultAnsiCodePage();

} // namespace tessaly::platform
