#include "platform/StagedFile.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QRandomGenerator>

namespace tessaly::platform {

namespace {

const QLatin1String Prefix(".tessaly-");
const QLatin1String Suffix(".part");

} // namespace

namespace {

QString TemporaryName(const QDir& folder)
{
    const quint32 random = QRandomGenerator::global()->generate();
    return folder.filePath(Prefix + QStringLiteral("%1").arg(random, 8, 16, QLatin1Char('0')) + Suffix);
}

} // namespace

TStagedFile::TStagedFile(const QString& target, bool privateToUser, bool named)
{
    const QDir folder = QFileInfo(target).dir();
    if (!named) {
        m_handle = CreateUnnamed(folder.path(), privateToUser);
        m_unnamed = m_handle >= 0;
    }
    for (int attempt = 0; attempt < 100 && m_handle < 0; ++attempt) {
        m_temporary = TemporaryName(folder);
        m_handle = CreateLocked(m_temporary, privateToUser);
    }
    if (m_handle < 0) {
        m_error = QCoreApplication::translate("TStagedFile", "Can not create a file in %1").arg(QDir::toNativeSeparators(folder.path()));
        m_temporary.clear();
        return;
    }
    if (!m_file.open(m_handle, QIODevice::WriteOnly, QFileDevice::DontCloseHandle)) {
        m_error = m_file.errorString();
        Discard();
    }
}

TStagedFile::~TStagedFile()
{
    Discard();
}

void TStagedFile::Discard()
{
    m_file.close();
    if (!m_temporary.isEmpty())
        QFile::remove(m_temporary);
    if (m_unnamed)
        CloseUnnamed(m_handle); // gone with its last handle and name
    else
        CloseLocked(m_handle);
    m_temporary.clear();
    m_handle = -1;
    m_unnamed = false;
}

TLinkResult TStagedFile::Commit(QString& target, const std::function<QString(const QString&)>& nextName, bool replace)
{
    if (m_handle < 0)
        return lrFailed;
    if (!m_file.flush()) {
        m_error = m_file.errorString();
        return lrFailed;
    }
    m_file.close();
    StartWriteBack(m_handle);
    if (m_unnamed && replace) {
        // Named first, then renamed over the file it replaces.
        for (int attempt = 0; attempt < 100 && m_temporary.isEmpty(); ++attempt) {
            const QString name = TemporaryName(QFileInfo(target).dir());
            if (LinkUnnamed(m_handle, name) == lrLinked)
                m_temporary = name;
        }
        if (m_temporary.isEmpty()) {
            m_error = QCoreApplication::translate("TStagedFile", "Can not name the file %1").arg(QDir::toNativeSeparators(target));
            return lrFailed;
        }
    }
    if (replace) {
        if (!RenameReplace(m_temporary, target)) {
            m_error = QCoreApplication::translate("TStagedFile", "Can not replace %1").arg(QDir::toNativeSeparators(target));
            return lrFailed;
        }
    } else {
        for (;;) {
            const TLinkResult result = m_unnamed ? LinkUnnamed(m_handle, target) : RenameNoReplace(m_temporary, target);
            if (result == lrLinked)
                break;
            const QString next = result == lrTaken && nextName ? nextName(target) : QString();
            if (next.isEmpty() || next == target) {
                m_error = result == lrTaken ? QStringLiteral("%1 exists").arg(QDir::toNativeSeparators(target))
                                            : QCoreApplication::translate("TStagedFile", "Can not name the file %1").arg(QDir::toNativeSeparators(target));
                return result == lrTaken ? lrTaken : lrFailed;
            }
            target = next;
        }
    }
    m_temporary.clear(); // it has its name now
    if (m_unnamed)
        CloseUnnamed(m_handle);
    else
        CloseLocked(m_handle);
    m_handle = -1;
    m_unnamed = false;
    return lrLinked;
}

bool TStagedFile::IsTemporaryName(const QString& fileName)
{
    return fileName.startsWith(Prefix) && fileName.endsWith(Suffix) && fileName.size() == Prefix.size() + 8 + Suffix.size();
}

int TStagedFile::RemoveStale(const QString& folder)
{
    int removed = 0;
    const QStringList names = QDir(folder).entryList({Prefix + QLatin1Char('*') + Suffix}, QDir::Files | QDir::Hidden | QDir::System);
    for (const QString& name : names)
        if (IsTemporaryName(name) && RemoveIfUnlocked(QDir(folder).filePath(name)))
            ++removed;
    return removed;
}

} // namespace tessaly::platform
