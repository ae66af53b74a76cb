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

bool TResumeManifest::Open(const QString& folder, bool resume, QString* error)
{
    m_folder = folder;
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
    const QString relative = QDir(m_folder).relativeFilePath(path);
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
    const QByteArray line = QJsonDocument(QJsonArray{QLatin1String(kind), key, QDir(m_folder).relativeFilePath(path)})
                                .toJson(QJsonDocument::Compact)
        + '\n';
    QMutexLocker lock(&m_lock);
    if (m_file.isOpen())
        m_file.write(line);
}

} // namespace tessaly::tasks
