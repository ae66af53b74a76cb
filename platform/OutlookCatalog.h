#pragma once

// Where Outlook keeps the list of its data files, and whether it runs.

#include <QString>
#include <QStringList>
#include <memory>

namespace tessaly::platform {

// Value names under a key of the current user's registry. On Windows the
// registry itself; elsewhere the user's Wine registry, when there is one.
class IOutlookCatalog {
public:
    virtual ~IOutlookCatalog() = default;
    // Value names under the key (a path below HKEY_CURRENT_USER), as paths of
    // this system; empty when the key does not exist.
    virtual QStringList ValueNames(const QString& key) const = 0;
};

// Reads user.reg of a Wine prefix ($WINEPREFIX, else ~/.wine) and maps
// Windows paths to the prefix's drives.
class TWineOutlookCatalog : public IOutlookCatalog {
public:
    explicit TWineOutlookCatalog(QString prefix = {});
    QStringList ValueNames(const QString& key) const override;
    // A Windows path as a path of this system, through the prefix's drives.
    QString HostPath(const QString& windowsPath) const;

private:
    QString m_prefix;
};

std::shared_ptr<IOutlookCatalog> DefaultOutlookCatalog();

// True when a process of that name runs (compared without regard to case).
bool IsProcessRunning(const QString& name);

} // namespace tessaly::platform
