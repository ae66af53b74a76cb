#include "app/ProjectData.h"

#include <QFileInfo>
#include <QPointer>

namespace tessaly::app {

namespace {

struct TRegistry {
    QPointer<QObject> Module;
    QString Product;
};

TRegistry& Registry()
{
    static TRegistry registry;
    return registry;
}

void Register(QObject* module, const QString& product)
{
    Registry().Module = module;
    Registry().Product = product;
}

void Unregister(QObject* module)
{
    if (Registry().Module == module) {
        Registry().Module = nullptr;
        Registry().Product.clear();
    }
}

} // namespace

QObject* GlobalProjectData()
{
    return Registry().Module;
}

QString ProductIdentity()
{
    return Registry().Product;
}

THTMLProjectData::THTMLProjectData()
{
    Register(this, QStringLiteral("Tessaly HTML"));
}

THTMLProjectData::~THTMLProjectData()
{
    Unregister(this);
}

TPSTViewerProjectData::TPSTViewerProjectData(const core::TCommandLine& commandLine, core::TSettingsStore& store,
    std::shared_ptr<platform::IOutlookCatalog> catalog, std::function<bool()> outlookRunning)
    : TPSTProjectData(commandLine, store, std::move(catalog), std::move(outlookRunning))
{
    Register(this, QStringLiteral("Tessaly"));
}

TPSTViewerProjectData::~TPSTViewerProjectData()
{
    Unregister(this);
}

QString TPSTViewerProjectData::FolderImageName(int kind)
{
    static const char* const names[] = {"inbox", "sent", "draft", "trash", "outbox", "other"};
    return QLatin1String(kind >= 0 && kind < 6 ? names[kind] : "other");
}

bool TPSTViewerProjectData::IsDataFile(const QString& fileName)
{
    const QString suffix = QFileInfo(fileName).suffix().toLower();
    return suffix == QLatin1String("pst") || suffix == QLatin1String("ost");
}

bool TPSTViewerProjectData::IsMessageFile(const QString& fileName)
{
    static const QStringList suffixes = {QStringLiteral("msg"), QStringLiteral("eml"), QStringLiteral("emlx"),
        QStringLiteral("mim"), QStringLiteral("vcf")};
    return suffixes.contains(QFileInfo(fileName).suffix().toLower());
}

TFileHandler TPSTViewerProjectData::AcceptFile(const QString& fileName) const
{
    if (IsMessageFile(fileName) && m_messageHandler)
        return m_messageHandler;
    return {};
}

QString CheckStartUpInvariants()
{
    if (!dynamic_cast<TPSTViewerProjectData*>(GlobalProjectData()))
        return QStringLiteral("Incorrect project data");
    if (ProductIdentity() != QLatin1String("Tessaly"))
        return QStringLiteral("Incorrect unit order (dmPST must be after dmHTML)");
    return {};
}

} // namespace tessaly::app
