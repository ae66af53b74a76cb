#include "platform/OutlookCatalog.h"

#include <QSettings>

namespace tessaly::platform {

namespace {

class TRegistryCatalog : public IOutlookCatalog {
public:
    QStringList ValueNames(const QString& key) const override
    {
        QSettings registry(QStringLiteral("HKEY_CURRENT_USER\\") + key, QSettings::NativeFormat);
        return registry.childKeys();
    }
};

} // namespace

TWineOutlookCatalog::TWineOutlookCatalog(QString prefix) : m_prefix(std::move(prefix)) {}
QStringList TWineOutlookCatalog::ValueNames(const QString&) const { return {}; }
QString TWineOutlookCatalog::HostPath(const QString& windowsPath) const { return windowsPath; }

std::shared_ptr<IOutlookCatalog> DefaultOutlookCatalog()
{
    return std::make_shared<TRegistryCatalog>();
}

bool IsProcessRunning(const QString&)
{
    return false; // the management-service query is not built here
}

} // namespace tessaly::platform
