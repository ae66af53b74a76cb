#pragma once

#include <QMutex>
#include <QSettings>
#include <QStringList>
#include <QVariant>
#include <memory>

namespace tessaly::core {

// Per-user settings: named sections holding single values and lists of
// repeated entries. Section names may contain backslashes ("Desktop\PST").
// An INI file through QSettings; safe to use from several threads.
class TSettingsStore {
public:
    // The per-user file of organisation "Halvorne", application "Tessaly".
    static QString DefaultFileName();

    explicit TSettingsStore(const QString& fileName = DefaultFileName());
    ~TSettingsStore();
    TSettingsStore(const TSettingsStore&) = delete;
    TSettingsStore& operator=(const TSettingsStore&) = delete;

    QString FileName() const;
    // True when the file could not be read and the store started from defaults.
    bool StartedFromDefaults() const { return m_startedFromDefaults; }

    bool SectionExists(const QString& section) const;
    bool ValueExists(const QString& section, const QString& name) const;

    QVariant ReadValue(const QString& section, const QString& name, const QVariant& def = {}) const;
    QString ReadString(const QString& section, const QString& name, const QString& def = {}) const;
    int ReadInteger(const QString& section, const QString& name, int def) const;
    bool ReadBool(const QString& section, const QString& name, bool def) const;

    void WriteValue(const QString& section, const QString& name, const QVariant& value);
    void WriteString(const QString& section, const QString& name, const QString& value);
    void WriteInteger(const QString& section, const QString& name, int value);
    void WriteBool(const QString& section, const QString& name, bool value);

    // Repeated entries come back in the order they were written.
    QStringList ReadEntries(const QString& section, const QString& name) const;
    void WriteEntries(const QString& section, const QString& name, const QStringList& entries);

    void DeleteValue(const QString& section, const QString& name);
    void EraseSection(const QString& section);
    void Sync();

    // The program-wide store. Until one is installed, the per-user file is used.
    static TSettingsStore& Global();
    static void SetGlobal(std::unique_ptr<TSettingsStore> store);

private:
    static QString Key(const QString& section, const QString& name);

    mutable QMutex m_lock;
    std::unique_ptr<QSettings> m_settings;
    bool m_startedFromDefaults = false;
};

} // namespace tessaly::core
