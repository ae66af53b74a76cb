#include "tasks/ResumeManifest.h"

#include "platform/FileSystem.h"
#include "tasks/CustomTask.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

namespace tessaly::tasks {

QString TResumeManifest::FileName()
{
    return QStringLiteral(".tessaly.manifest");
}

QString TResumeManifest::Key(const TTaskEntry& entry)
{
    return QString::number(entry.Index) + QLatin1Char('|') + entry.Source + QLatin1Char('|') + entry.Folders.join(QLatin1Char('\\'));
}

namespace {

// A JSON string: quotes, backslashes and control characters escaped.
void AppendJsonString(QString& out, const QString& text)
{
    out += QLatin1Char('"');
    for (const QChar c : text) {
        if (c == QLatin1Char('"') || c == QLatin1Char('\\')) {
            out += QLatin1Char('\\');
            out += c;
        } else if (c.unicode() < 0x20) {
            out += QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
        } else {
            out += c;
        }
    }
    out += QLatin1Char('"');
}

} // namespace

QString TResumeManifest::Relative(const QString& path) const
{
    // Outputs lie below the folder: the common case needs no path arithmetic.
    return path.startsWith(m_prefix) ? path.mid(m_prefix.size()) : QDir(m_folder).relativeFilePath(path);
}

bool TResumeManifest::Open(const QString& folder, bool resume, QString* error)
{
    m_folder = folder;
    m_prefix = QDir::cleanPath(folder) + QLatin1Char('/');
    m_file.setFileName(QDir(folder).filePath(FileName()));
    // A second export into the folder while one runs keeps no record: the
    // record is the first one's.
    if (QFile probe(m_file.fileName()); probe.exists() && probe.open(QIODevice::ReadWrite)) {
        if (!platform::TryLockOpenFile(probe.handle())) {
            m_folder.clear();
            return true;
        }
    }
    if (resume && m_file.open(QIODevice::ReadOnly)) {
        // One JSON array per line: kind, key, output. A line cut short by
        // the kill is no JSON and is left out.
        while (!m_file.atEnd()) {
            const QJsonArray line = QJsonDocument::fromJson(m_file.readLine()).array();
            if (line.size() != 3)
                continue;
            const QString kind = line[0].toString();
            (kind == QLatin1String("done") ? m_done : m_begun)[line[1].toString()] = line[2].toString();
        }
        m_file.close();
    }
    if (!QDir().mkpath(folder)
        || !m_file.open(QIODevice::WriteOnly | (resume ? QIODevice::Append : QIODevice::Truncate) | QIODevice::Unbuffered)) {
        if (error)
            *error = QCoreApplication::translate("TResumeManifest", "Can not write %1: %2").arg(m_file.fileName(), m_file.errorString());
        return false;
    }
    // Held while the run writes; another export into the folder sees it.
    if (!platform::TryLockOpenFile(m_file.handle()))
        m_file.close();
    return true;
}

bool TResumeManifest::Done(const QString& key, const QString& path) const
{
    const QString relative = Relative(path);
    if (m_done.value(key) == relative)
        return true;
    return m_begun.value(key) == relative && !relative.isEmpty() && QFileInfo::exists(path);
}

void TResumeManifest::Begin(const QString& key, const QString& path)
{
    Append("begin", key, path);
}

void TResumeManifest::Finish(const QString& key, const QString& path)
{
    Append("done", key, path);
}

void TResumeManifest::Append(const char* kind, const QString& key, const QString& path)
{
    // Written once per message on the export's path: the line is put
    // together by hand, one JSON array as the reader above parses it.
    if (m_folder.isEmpty())
        return;
    QString text = QStringLiteral("[\"") + QLatin1String(kind) + QStringLiteral("\",");
    AppendJsonString(text, key);
    text += QLatin1Char(',');
    AppendJsonString(text, Relative(path));
    text += QStringLiteral("]\n");
    const QByteArray line = text.toUtf8();
    QMutexLocker lock(&m_lock);
    if (m_file.isOpen())
        m_file.write(line);
}

} // namespace tessaly::tasks
