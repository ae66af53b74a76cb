#include "core/SettingsStore.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QStandardPaths>
#include <QStringDecoder>

Q_LOGGING_CATEGORY(lcSettings, "tessaly.settings")

namespace tessaly::core {

namespace {

const QLatin1String Organisation("Halvorne");
const QLatin1String Application("Tessaly");
const QLatin1String EntryValue("value");

enum class TFileState { Fine, Unreadable, Corrupt };

// An INI file holds text. NUL bytes or bytes that are not UTF-8 mean the file
// was damaged or is not ours.
TFileState Inspect(const QString& fileName, QString& reason)
{
    QFile file(fileName);
    if (!file.exists())
        return TFileState::Fine;
    if (!file.open(QIODevice::ReadOnly)) {
        reason = file.errorString();
        return TFileState::Unreadable;
    }
    const QByteArray data = file.readAll();
    if (data.contains('\0')) {
        reason = QStringLiteral("the file holds binary data");
        return TFileState::Corrupt;
    }
    QStringDecoder decoder(QStringDecoder::Utf8);
    (void)QString(decoder.decode(data));
    if (decoder.hasError()) {
        reason = QStringLiteral("the file is not UTF-8 text");
        return TFileState::Corrupt;
    }
    return TFileState::Fine;
}

std::unique_ptr<TSettingsStore>& GlobalSlot()
{
    static std::unique_ptr<TSettingsStore> store;
    return store;
}

QMutex& GlobalLock()
{
    static QMutex lock;
    return lock;
}

} // namespace

QString TSettingsStore::DefaultFileName()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QLatin1Char('/') + Organisation
        + QLatin1Char('/') + Application + QLatin1String(".ini");
}

TSettingsStore::TSettingsStore(const QString& fileName)
{
    QString reason;
    const TFileState state = Inspect(fileName, reason);
    if (state == TFileState::Unreadable) {
        m_startedFromDefaults = true;
        qCWarning(lcSettings, "Settings file %s could not be read (%s); defaults are used",
            qUtf8Printable(fileName), qUtf8Printable(reason));
    } else if (state == TFileState::Corrupt) {
        m_startedFromDefaults = true;
        // Keep the damaged file for the user; we start again beside it.
        const QString kept = fileName + QLatin1String(".corrupt");
        QFile::remove(kept);
        if (QFile::rename(fileName, kept))
            qCWarning(lcSettings, "Settings file %s could not be read (%s); defaults are used, the old file is kept as %s",
                qUtf8Printable(fileName), qUtf8Printable(reason), qUtf8Printable(kept));
        else
            qCWarning(lcSettings, "Settings file %s could not be read (%s); defaults are used",
                qUtf8Printable(fileName), qUtf8Printable(reason));
    }
    QDir().mkpath(QFileInfo(fileName).absolutePath());
    m_settings = std::make_unique<QSettings>(fileName, QSettings::IniFormat);
    if (state != TFileState::Unreadable && m_settings->status() != QSettings::NoError) {
        qCWarning(lcSettings, "Settings file %s could not be read; defaults are used", qUtf8Printable(fileName));
        m_startedFromDefaults = true;
        m_settings->clear();
    }
}

TSettingsStore::~TSettingsStore()
{
    QMutexLocker locker(&m_lock);
    m_settings->sync();
}

QString TSettingsStore::FileName() const
{
    return m_settings->fileName();
}

// QSettings takes both "/" and "\" as group separators, which suits the
// section paths we use.
QString TSettingsStore::Key(const QString& section, const QString& name)
{
    return section + QLatin1Char('/') + name;
}

bool TSettingsStore::SectionExists(const QString& section) const
{
    QMutexLocker locker(&m_lock);
    m_settings->beginGroup(section);
    const bool exists = !m_settings->childKeys().isEmpty() || !m_settings->childGroups().isEmpty();
    m_settings->endGroup();
    return exists;
}

bool TSettingsStore::ValueExists(const QString& section, const QString& name) const
{
    QMutexLocker locker(&m_lock);
    return m_settings->contains(Key(section, name));
}

QVariant TSettingsStore::ReadValue(const QString& section, const QString& name, const QVariant& def) const
{
    QMutexLocker locker(&m_lock);
    return m_settings->value(Key(section, name), def);
}

QString TSettingsStore::ReadString(const QString& section, const QString& name, const QString& def) const
{
    return ReadValue(section, name, def).toString();
}

int TSettingsStore::ReadInteger(const QString& section, const QString& name, int def) const
{
    bool ok = false;
    const int value = ReadValue(section, name, def).toInt(&ok);
    return ok ? value : def;
}

bool TSettingsStore::ReadBool(const QString& section, const QString& name, bool def) const
{
    const QVariant value = ReadValue(section, name, def);
    const QString text = value.toString().trimmed().toLower();
    if (text == QLatin1String("true") || text == QLatin1String("1"))
        return true;
    if (text == QLatin1String("false") || text == QLatin1String("0"))
        return false;
    return def;
}

void TSettingsStore::WriteValue(const QString& section, const QString& name, const QVariant& value)
{
    QMutexLocker locker(&m_lock);
    m_settings->setValue(Key(section, name), value);
}

void TSettingsStore::WriteString(const QString& section, const QString& name, const QString& value)
{
    WriteValue(section, name, value);
}

void TSettingsStore::WriteInteger(const QString& section, const QString& name, int value)
{
    WriteValue(section, name, value);
}

void TSettingsStore::WriteBool(const QString& section, const QString& name, bool value)
{
    WriteValue(section, name, value);
}

QStringList TSettingsStore::ReadEntries(const QString& section, const QString& name) const
{
    QMutexLocker locker(&m_lock);
    QStringList entries;
    m_settings->beginGroup(section);
    const int count = m_settings->beginReadArray(name);
    for (int i = 0; i < count; ++i) {
        m_settings->setArrayIndex(i);
        entries << m_settings->value(EntryValue).toString();
    }
    m_settings->endArray();
    m_settings->endGroup();
    return entries;
}

void TSettingsStore::WriteEntries(const QString& section, const QString& name, const QStringList& entries)
{
    QMutexLocker locker(&m_lock);
    m_settings->beginGroup(section);
    m_settings->remove(name);
    m_settings->beginWriteArray(name, int(entries.size()));
    for (int i = 0; i < entries.size(); ++i) {
        m_settings->setArrayIndex(i);
        m_settings->setValue(EntryValue, entries[i]);
    }
    m_settings->endArray();
    m_settings->endGroup();
}

void TSettingsStore::DeleteValue(const QString& section, const QString& name)
{
    QMutexLocker locker(&m_lock);
    m_settings->remove(Key(section, name));
}

void TSettingsStore::EraseSection(const QString& section)
{
    QMutexLocker locker(&m_lock);
    m_settings->remove(section);
}

void TSettingsStore::Sync()
{
    QMutexLocker locker(&m_lock);
    m_settings->sync();
    if (m_settings->status() == QSettings::AccessError)
        qCWarning(lcSettings, "Settings could not be written to %s", qUtf8Printable(m_settings->fileName()));
}

TSettingsStore& TSettingsStore::Global()
{
    QMutexLocker locker(&GlobalLock());
    auto& store = GlobalSlot();
    if (!store)
        store = std::make_unique<TSettingsStore>();
    return *store;
}

void TSettingsStore::SetGlobal(std::unique_ptr<TSettingsStore> store)
{
    QMutexLocker locker(&GlobalLock());
    GlobalSlot() = std::move(store);
}

} // namespace tessaly::core
