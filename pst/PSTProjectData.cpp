#include "pst/PSTProjectData.h"

#include "core/CommandLine.h"
#include "core/CrashReporter.h"
#include "core/MessageBus.h"
#include "pst/PSTFile.h"

#include <QCoreApplication>
#include <QFileInfo>

namespace tessaly::pst {

namespace {

const QString FileEntry = QStringLiteral("file");

// Outlook's catalog keys, oldest version first, with the year that names it.
const std::pair<const char*, int> CatalogKeys[] = {
    {"Software\\Microsoft\\Office\\12.0\\Outlook\\Catalog\\", 2007},
    {"Software\\Microsoft\\Office\\14.0\\Outlook\\Search\\Catalog\\", 2010},
    {"Software\\Microsoft\\Office\\15.0\\Outlook\\Search\\Catalog\\", 2013},
    {"Software\\Microsoft\\Office\\16.0\\Outlook\\Search\\Catalog\\", 2016},
};

} // namespace

// --- TPSTFileStatus ---------------------------------------------------------

void TPSTFileStatus::Define(const QString& file, bool present)
{
    if (present && !m_set.contains(file)) {
        m_set.insert(file);
        m_files << file;
    } else if (!present && m_set.remove(file)) {
        m_files.removeAll(file);
    }
    Save();
}

void TPSTFileStatus::Load()
{
    m_files.clear();
    m_set.clear();
    for (const QString& file : m_store.ReadEntries(m_name, FileEntry)) {
        if (!m_set.contains(file)) {
            m_set.insert(file);
            m_files << file;
        }
    }
}

void TPSTFileStatus::Save() const
{
    m_store.WriteEntries(m_name, FileEntry, m_files);
    m_store.Sync();
}

// --- TPSTFileMailFolder --------------------------------------------------------

TPSTFileMailFolder::TPSTFileMailFolder(std::shared_ptr<TPSTFile> file)
    : adapter::TPSTMailFolder(file->RootFolder()), m_file(std::move(file))
{
}

// --- TPSTProjectData --------------------------------------------------------------

TPSTProjectData::TPSTProjectData(const core::TCommandLine& commandLine, core::TSettingsStore& store,
    std::shared_ptr<platform::IOutlookCatalog> catalog, std::function<bool()> outlookRunning)
    : m_commandLine(commandLine), m_store(store), m_catalog(std::move(catalog)), m_outlookRunning(std::move(outlookRunning))
{
}

TPSTProjectData::~TPSTProjectData()
{
    DataModuleDestroy();
}

void TPSTProjectData::DataModuleCreate()
{
    const auto builder = core::RegisteredReportBuilder();
    if (!std::dynamic_pointer_cast<TPSTReportBuilder>(builder))
        throw core::ETessalyError(QStringLiteral("Report builder must be PSTReportBuilder"));
    m_disabled = std::make_unique<TPSTFileStatus>(QStringLiteral("disabled"), m_store);
    m_removed = std::make_unique<TPSTFileStatus>(QStringLiteral("removed"), m_store);
    m_disabled->Load();
    m_removed->Load();
    core::TCrashReporter::Instance().Ignore<EOutlookRunning>();
    core::TMessageBus::Instance().Subscribe(this, core::Topic::RequestMail,
        core::TMessageBus::TAnswerHandler([this](const QVariant&) { return QVariant::fromValue(RequestMail()); }));
}

void TPSTProjectData::DataModuleDestroy()
{
    core::TMessageBus::Instance().Unsubscribe(this, core::Topic::RequestMail);
}

QStringList TPSTProjectData::CatalogCandidates() const
{
    QStringList candidates;
    if (!m_catalog)
        return candidates;
    for (const auto& [key, year] : CatalogKeys)
        for (const QString& path : m_catalog->ValueNames(QLatin1String(key)))
            if (QFileInfo(path).isFile())
                candidates << path + QLatin1Char('?') + QString::number(year);
    return candidates;
}

// Of the catalog's candidates, the first one of the newest Outlook: the file
// the user most likely works with now.
QString TPSTProjectData::FindDefaultPST()
{
    if (m_commandLine.HasKey(QStringLiteral("pst"))) {
        const QString file = m_commandLine.Value(QStringLiteral("pst"));
        if (m_removed)
            m_removed->Define(file, false);
        return file;
    }
    QString best;
    int bestYear = 0;
    for (const QString& candidate : CatalogCandidates()) {
        const qsizetype mark = candidate.lastIndexOf(QLatin1Char('?'));
        const int year = candidate.mid(mark + 1).toInt();
        if (year > bestYear) {
            bestYear = year;
            best = candidate.left(mark);
        }
    }
    return best;
}

bool TPSTProjectData::CheckOutlookRunning() const
{
    return m_outlookRunning ? m_outlookRunning() : platform::IsProcessRunning(QStringLiteral("OUTLOOK.EXE"));
}

std::shared_ptr<mail::IMailFolder> TPSTProjectData::RequestMail()
{
    if (CheckOutlookRunning())
        throw EOutlookRunning(QCoreApplication::translate("TPSTProjectData", "Outlook is running. Please, close Outlook"));
    QString file = m_commandLine.Value(QStringLiteral("pst"));
    if (file.isEmpty())
        file = FindDefaultPST();
    if (file.isEmpty())
        throw core::ETessalyError(QCoreApplication::translate("TPSTProjectData", "Can not find default outlook data file"));
    auto pstFile = std::make_shared<TPSTFile>(file);
    if (!pstFile->RootFolder())
        throw core::ETessalyError(QCoreApplication::translate("TPSTProjectData", "Can not load outlook data file - ") + file);
    return std::make_shared<TPSTFileMailFolder>(std::move(pstFile));
}

// --- TPSTDataStore ------------------------------------------------------------

void TPSTDataStore::LoadFolder(TPSTFolder* folder)
{
    m_folder = folder;
    m_uids.assign(folder ? size_t(folder->ItemCount()) : 0, std::nullopt);
}

int TPSTDataStore::UID(int row) const
{
    if (!m_folder || row < 0 || row >= RowCount())
        return 0;
    auto& uid = m_uids[size_t(row)];
    if (!uid) {
        const auto item = m_folder->GetItem(row);
        uid = item ? int(item->ID()) : 0;
    }
    return *uid;
}

QString TPSTDataStore::MessageFileName(int) const
{
    if (!m_folder || !m_folder->Store())
        return {};
    return m_folder->Store()->File().FileName();
}

std::shared_ptr<mail::IMailMessage> TPSTDataStore::Message(int row) const
{
    if (!m_folder || row < 0 || row >= RowCount())
        return nullptr;
    const auto item = m_folder->GetItem(row);
    if (!item)
        return nullptr;
    TPSTItemHelper helper(item);
    helper.ResolveFields();
    return adapter::WrapItem(item, false);
}

} // namespace tessaly::pst
