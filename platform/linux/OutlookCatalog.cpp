#include "platform/OutlookCatalog.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <strings.h>
#include <unistd.h>

namespace tessaly::platform {

namespace {

// A registry string as Wine writes it: backslashes and quotes escaped.
QString Unescape(const QString& text)
{
    QString out;
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (text[i] == QLatin1Char('\\') && i + 1 < text.size())
            ++i;
        out += text[i];
    }
    return out;
}

} // namespace

TWineOutlookCatalog::TWineOutlookCatalog(QString prefix) : m_prefix(std::move(prefix))
{
    if (m_prefix.isEmpty()) {
        const QString env = qEnvironmentVariable("WINEPREFIX");
        m_prefix = env.isEmpty() ? QDir::homePath() + QStringLiteral("/.wine") : env;
    }
}

QString TWineOutlookCatalog::HostPath(const QString& windowsPath) const
{
    if (windowsPath.size() < 3 || windowsPath[1] != QLatin1Char(':'))
        return windowsPath;
    const QString drive = windowsPath.left(2).toLower();
    QString rest = windowsPath.mid(2);
    rest.replace(QLatin1Char('\\'), QLatin1Char('/'));
    // dosdevices holds one link per drive ("c:" -> "../drive_c").
    const QFileInfo link(m_prefix + QStringLiteral("/dosdevices/") + drive);
    const QString root = link.exists() ? link.canonicalFilePath()
                                       : m_prefix + QStringLiteral("/drive_") + drive.left(1);
    return QDir::cleanPath(root + rest);
}

QStringList TWineOutlookCatalog::ValueNames(const QString& key) const
{
    QFile file(m_prefix + QStringLiteral("/user.reg"));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    // Keys are written "[Software\\Microsoft\\...] <time>", without a trailing backslash.
    QString wanted = key;
    while (wanted.endsWith(QLatin1Char('\\')))
        wanted.chop(1);
    wanted = wanted.toLower();
    QStringList names;
    bool inKey = false;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (line.startsWith(QLatin1Char('['))) {
            const qsizetype close = line.indexOf(QLatin1Char(']'));
            inKey = close > 0 && Unescape(line.mid(1, close - 1)).toLower() == wanted;
            continue;
        }
        if (!inKey || !line.startsWith(QLatin1Char('"')))
            continue;
        // "name"=value: the name runs to the first unescaped quote.
        qsizetype end = 1;
        while (end < line.size() && line[end] != QLatin1Char('"'))
            end += line[end] == QLatin1Char('\\') ? 2 : 1;
        names << HostPath(Unescape(line.mid(1, end - 1)));
    }
    return names;
}

std::shared_ptr<IOutlookCatalog> DefaultOutlookCatalog()
{
    return std::make_shared<TWineOutlookCatalog>();
}

namespace {

// The first bytes of a file under /proc, at most the buffer's size.
size_t ReadProcFile(int dir, const char* name, char* buffer, size_t size)
{
    const int fd = openat(dir, name, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return 0;
    ssize_t got;
    do
        got = read(fd, buffer, size);
    while (got < 0 && errno == EINTR);
    close(fd);
    return got > 0 ? size_t(got) : 0;
}

} // namespace

// The process table: the command name and the program of each process.
// Read with plain system calls: every export asks, and the table of a
// desktop holds hundreds of processes.
bool IsProcessRunning(const QString& name)
{
    const QByteArray wanted = name.toLocal8Bit();
    const auto same = [&](const char* text, size_t size) {
        return size == size_t(wanted.size()) && strncasecmp(text, wanted.constData(), size) == 0;
    };
    DIR* proc = opendir("/proc");
    if (!proc)
        return false;
    bool found = false;
    char buffer[4096];
    while (!found) {
        const dirent* entry = readdir(proc);
        if (!entry)
            break;
        if (entry->d_name[0] < '1' || entry->d_name[0] > '9')
            continue;
        const int dir = openat(dirfd(proc), entry->d_name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (dir < 0)
            continue;
        // The command name, as the kernel keeps it (cut at 15 bytes)...
        size_t size = ReadProcFile(dir, "comm", buffer, sizeof buffer);
        while (size > 0 && (buffer[size - 1] == '\n' || buffer[size - 1] == ' '))
            --size;
        found = same(buffer, size);
        // ...and the program started, without its folder (a Windows path
        // under Wine).
        if (!found && (size = ReadProcFile(dir, "cmdline", buffer, sizeof buffer)) > 0) {
            const size_t program = strnlen(buffer, size);
            size_t base = program;
            while (base > 0 && buffer[base - 1] != '/' && buffer[base - 1] != '\\')
                --base;
            found = same(buffer + base, program - base);
        }
        close(dir);
    }
    closedir(proc);
    return found;
}

} // namespace tessaly::platform
