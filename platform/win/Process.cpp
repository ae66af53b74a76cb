#include "platform/Process.h"

#include <QFileInfo>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <process.h>
#include <windows.h>

namespace tessaly::platform {

QString ProgramFolder()
{
    wchar_t path[MAX_PATH * 4];
    const DWORD length = GetModuleFileNameW(nullptr, path, DWORD(std::size(path)));
    if (length == 0 || length >= std::size(path))
        return {};
    return QFileInfo(QString::fromWCharArray(path, int(length))).absolutePath();
}

// Windows has no way to replace a process: the program runs as a child,
// and this process ends with its exit code.
QString ReplaceProcess(const QString& program, char** argv)
{
    std::fflush(stdout);
    std::fflush(stderr);
    const intptr_t code = _spawnv(_P_WAIT, QFile::encodeName(program).constData(), argv);
    if (code != -1)
        std::exit(int(code));
    return QString::fromLocal8Bit(std::strerror(errno));
}

} // namespace tessaly::platform
