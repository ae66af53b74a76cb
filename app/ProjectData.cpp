#include "app/ProjectData.h"

#include <QApplication>
#include <QFileInfo>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QPointer>
#include <QStyle>

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

// A small folder drawn in the kind's colour, with a mark for special folders.
QIcon FolderIcon(const QColor& colour, const QString& mark)
{
    QPixmap pixmap(16, 16);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath path;
    path.moveTo(1, 4);
    path.lineTo(6, 4);
    path.lineTo(7.5, 2.5);
    path.lineTo(14, 2.5);
    path.lineTo(15, 4);
    path.lineTo(15, 14);
    path.lineTo(1, 14);
    path.closeSubpath();
    painter.setPen(colour.darker(150));
    painter.setBrush(colour);
    painter.drawPath(path);
    if (!mark.isEmpty()) {
        QFont font = painter.font();
        font.setPixelSize(9);
        font.setBold(true);
        painter.setFont(font);
        painter.setPen(Qt::white);
        painter.drawText(QRect(1, 4, 14, 10), Qt::AlignCenter, mark);
    }
    return QIcon(pixmap);
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

QIcon TPSTViewerProjectData::TreeImage(const QString& name) const
{
    if (ilTree.isEmpty() && qobject_cast<QApplication*>(QCoreApplication::instance())) {
        ilTree.insert(QStringLiteral("outlook"), qApp->style()->standardIcon(QStyle::SP_DriveHDIcon));
        ilTree.insert(QStringLiteral("contacts"), FolderIcon(QColor(128, 0, 0), QStringLiteral("@")));
        ilTree.insert(QStringLiteral("inbox"), FolderIcon(QColor(52, 101, 164), QStringLiteral("\u2193")));
        ilTree.insert(QStringLiteral("sent"), FolderIcon(QColor(78, 154, 6), QStringLiteral("\u2191")));
        ilTree.insert(QStringLiteral("draft"), FolderIcon(QColor(196, 160, 0), QStringLiteral("\u270E")));
        ilTree.insert(QStringLiteral("trash"), FolderIcon(QColor(117, 80, 123), QStringLiteral("\u00D7")));
        ilTree.insert(QStringLiteral("outbox"), FolderIcon(QColor(206, 92, 0), QStringLiteral("\u2192")));
        ilTree.insert(QStringLiteral("other"), FolderIcon(QColor(233, 185, 110), {}));
    }
    return ilTree.value(name);
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
