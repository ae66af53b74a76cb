#pragma once

// The program's project data modules. Each registers itself as the
// program-wide project data when created and names the product; the module
// created last wins, so the viewer's module must come after the HTML one.

#include "pst/PSTProjectData.h"

#include <QHash>
#include <QObject>
#include <functional>

namespace tessaly::app {

// The program-wide project data and the product identity it wrote.
QObject* GlobalProjectData();
QString ProductIdentity();

// What the HTML side of the program shares: the style of the preview.
class THTMLProjectData : public QObject {
public:
    THTMLProjectData();
    ~THTMLProjectData() override;
};

// Opens a single message file (.msg, .eml, .vcf...) in a window of its own.
using TFileHandler = std::function<void(const QString& fileName)>;

class TPSTViewerProjectData : public pst::TPSTProjectData {
public:
    TPSTViewerProjectData(const core::TCommandLine& commandLine, core::TSettingsStore& store,
        std::shared_ptr<platform::IOutlookCatalog> catalog = platform::DefaultOutlookCatalog(),
        std::function<bool()> outlookRunning = nullptr);
    ~TPSTViewerProjectData() override;

    // The image name of a folder kind (in the order of the kinds).
    static QString FolderImageName(int kind);

    // A handler for a file that is no data file, or none.
    TFileHandler AcceptFile(const QString& fileName) const;
    // Where single message files go; the main window installs it.
    void SetMessageFileHandler(TFileHandler handler) { m_messageHandler = std::move(handler); }
    static bool IsDataFile(const QString& fileName);
    static bool IsMessageFile(const QString& fileName);

private:
    TFileHandler m_messageHandler;
};

// The two start-up invariants; the assertion text of the first that fails,
// or empty.
QString CheckStartUpInvariants();

} // namespace tessaly::app
