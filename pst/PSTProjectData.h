#pragma once

// The data-file side of the program: which data file to open when none is
// named, whether Outlook runs, the mail source of a command-line run, the
// lists of disabled and removed files, and the rows of a folder.

#include "core/Exceptions.h"
#include "core/ReportBuilder.h"
#include "core/SettingsStore.h"
#include "mail/MailDataStore.h"
#include "pst/PSTFile.h"
#include "pst/PSTMessage.h"
#include "platform/OutlookCatalog.h"

#include <QObject>
#include <QSet>
#include <QStringList>
#include <optional>

namespace tessaly::core {
class TCommandLine;
}

namespace tessaly::pst {

class EOutlookRunning : public core::ETessalyError {
public:
    using ETessalyError::ETessalyError;
};

// A persistent list of file names ("disabled", "removed"): kept in the
// settings store under its name, one "file" entry per name, in the order
// they were added; saved at every change.
class TPSTFileStatus {
public:
    TPSTFileStatus(QString name, core::TSettingsStore& store) : m_name(std::move(name)), m_store(store) {}
    const QString& Name() const { return m_name; }
    void Define(const QString& file, bool present);
    bool Has(const QString& file) const { return m_set.contains(file); }
    const QStringList& Files() const { return m_files; }
    void Load();
    void Save() const;

private:
    QString m_name;
    core::TSettingsStore& m_store;
    QStringList m_files;
    QSet<QString> m_set;
};

// Reports of data files, as the program registers them.
class TPSTReportBuilder : public core::IReportBuilder {
public:
    QString Name() const override { return QStringLiteral("PSTReportBuilder"); }
};

// A mail folder adapter that keeps its data file open.
class TPSTFileMailFolder : public adapter::TPSTMailFolder {
public:
    explicit TPSTFileMailFolder(std::shared_ptr<TPSTFile> file);

private:
    std::shared_ptr<TPSTFile> m_file;
};

class TPSTProjectData : public QObject {
public:
    TPSTProjectData(const core::TCommandLine& commandLine, core::TSettingsStore& store,
        std::shared_ptr<platform::IOutlookCatalog> catalog = platform::DefaultOutlookCatalog(),
        std::function<bool()> outlookRunning = nullptr);
    ~TPSTProjectData() override;

    // Throws ETessalyError "Report builder must be PSTReportBuilder" when
    // another report builder is registered.
    void DataModuleCreate();
    void DataModuleDestroy();

    // The data file to open when none is named: the command line's "pst"
    // (taken out of the removed list), else the newest Outlook's catalog.
    QString FindDefaultPST();
    // The candidates of the catalog, "path?year", in the order read.
    QStringList CatalogCandidates() const;
    bool CheckOutlookRunning() const;

    // The answer to "request.mail": the root folder of the data file.
    std::shared_ptr<mail::IMailFolder> RequestMail();

    TPSTFileStatus& Disabled() { return *m_disabled; }
    TPSTFileStatus& Removed() { return *m_removed; }

private:
    const core::TCommandLine& m_commandLine;
    core::TSettingsStore& m_store;
    std::shared_ptr<platform::IOutlookCatalog> m_catalog;
    std::function<bool()> m_outlookRunning;
    std::unique_ptr<TPSTFileStatus> m_disabled;
    std::unique_ptr<TPSTFileStatus> m_removed;
};

// The rows of a folder for the message list: one per item, with the item's
// identifier as "UID", read when first asked for.
class TPSTDataStore : public mail::TMailDataStore {
public:
    // No folder gives no rows.
    void LoadFolder(TPSTFolder* folder);
    int RowCount() const override { return int(m_uids.size()); }
    // The row's "UID" field; 0 for an empty slot.
    int UID(int row) const override;
    // The message of a row, its fields read and its addresses resolved;
    // null for an empty slot.
    std::shared_ptr<mail::IMailMessage> Message(int row) const override;
    // The data file of the folder.
    QString MessageFileName(int row) const override;
    TPSTFolder* Folder() const { return m_folder; }

private:
    TPSTFolder* m_folder = nullptr;
    mutable std::vector<std::optional<int>> m_uids;
};

class TPSTMailDataStore : public TPSTDataStore {};

} // namespace tessaly::pst
