#include "platform/Process.h"

#include <QFileInfo>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace tessaly::platform {

QString ProgramFolder()
{
    const QFileInfo self(QStringLiteral("/proc/self/exe"));
    const QString target = self.symLinkTarget();
    return target.isEmpty() ? QString() : QFileInfo(target).absolutePath();
}

QString ReplaceProcess(const QString& program, char** argv)
{
    // Whatever this process has buffered would be lost with it.
    std::fflush(stdout);
    std::fflush(stderr);
    execv(QFile::encodeName(program).constData(), argv);
    return QString::fromLocal8Bit(std::strerror(errno));
}

} // namespace tessaly::platform
