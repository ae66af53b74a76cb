#include "platform/OutlookCatalog.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

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

// The process table: the command name and the program of each process.
bool IsProcessRunning(const QString& name)
{
    const QDir proc(QStringLiteral("/proc"));
    for (const QString& entry : proc.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        bool numeric = false;
        entry.toInt(&numeric);
        if (!numeric)
            continue;
        QFile comm(proc.filePath(entry + QStringLiteral("/comm")));
        if (comm.open(QIODevice::ReadOnly) && QString::fromUtf8(comm.readAll()).trimmed().compare(name, Qt::CaseInsensitive) == 0)
            return true;
        QFile cmdline(proc.filePath(entry + QStringLiteral("/cmdline")));
        if (!cmdline.open(QIODevice::ReadOnly))
            continue;
        const QByteArray program = cmdline.readAll().split('\0').value(0);
        QString base = QString::fromLocal8Bit(program);
        base = base.mid(std::max(base.lastIndexOf(QLatin1Char('/')), base.lastIndexOf(QLatin1Char('\\'))) + 1);
        if (base.compare(name, Qt::CaseInsensitive) == 0)
            return true;
    }
    return false;
}

} // namespace tessaly::platform
