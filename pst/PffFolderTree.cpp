#include "pst/PffFolderTree.h"

#include "core/Exceptions.h"
#include "pst/PffHandle.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>

namespace tessaly::pst {

namespace {

// A damaged file can point a folder at one of its parents.
constexpr int MaxDepth = 64;

QString FolderName(libpff_item_t* folder)
{
    size_t size = 0;
    if (libpff_folder_get_utf8_name_size(folder, &size, nullptr) != 1 || size == 0)
        return {};
    QByteArray name(qsizetype(size), '\0');
    if (libpff_folder_get_utf8_name(folder, reinterpret_cast<uint8_t*>(name.data()), size, nullptr) != 1)
        return {};
    return QString::fromUtf8(name.constData());
}

TPffFolderNode ReadFolder(libpff_item_t* folder, int depth)
{
    TPffFolderNode node;
    node.Name = FolderName(folder);
    int count = 0;
    if (libpff_folder_get_number_of_sub_messages(folder, &count, nullptr) == 1)
        node.ItemCount = count;
    if (depth >= MaxDepth)
        return node;
    int folders = 0;
    if (libpff_folder_get_number_of_sub_folders(folder, &folders, nullptr) != 1)
        return node;
    for (int i = 0; i < folders; ++i) {
        TPffItemHandle sub;
        if (libpff_folder_get_sub_folder(folder, i, sub.Out(), nullptr) == 1 && sub)
            node.Children.push_back(ReadFolder(sub.Get(), depth + 1));
    }
    return node;
}

void AppendText(const TPffFolderNode& node, int level, QString& text)
{
    text += QString(level * 2, QLatin1Char(' '))
        + (node.Name.isEmpty() ? QStringLiteral("(root)") : node.Name)
        + QStringLiteral(" (%1)\n").arg(node.ItemCount);
    for (const auto& child : node.Children)
        AppendText(child, level + 1, text);
}

QJsonObject ToJsonObject(const TPffFolderNode& node)
{
    QJsonArray children;
    for (const auto& child : node.Children)
        children.append(ToJsonObject(child));
    return QJsonObject{{QStringLiteral("name"), node.Name}, {QStringLiteral("items"), node.ItemCount},
        {QStringLiteral("folders"), children}};
}

} // namespace

TPffFolderTree TPffFolderTree::Read(const QString& fileName)
{
    if (!QFileInfo(fileName).isFile())
        throw core::ETessalyError(QStringLiteral("File not found: %1").arg(fileName));
    TPffFileHandle file;
    TPffError error;
    if (libpff_file_initialize(file.Out(), error.Out()) != 1)
        throw core::ETessalyError(QStringLiteral("Can not open %1: %2").arg(fileName, error.Text()));
    if (libpff_file_open(file.Get(), QFile::encodeName(fileName).constData(), LIBPFF_OPEN_READ, error.Out()) != 1)
        throw core::ETessalyError(QStringLiteral("Can not open %1: %2").arg(fileName, error.Text()));

    TPffFolderTree tree;
    tree.FileName = fileName;
    uint8_t contentType = 0;
    if (libpff_file_get_content_type(file.Get(), &contentType, nullptr) == 1) {
        switch (contentType) {
        case LIBPFF_FILE_CONTENT_TYPE_OST: tree.Format = QStringLiteral("OST"); break;
        case LIBPFF_FILE_CONTENT_TYPE_PAB: tree.Format = QStringLiteral("PAB"); break;
        default: tree.Format = QStringLiteral("PST");
        }
    }
    uint8_t type = 0;
    if (libpff_file_get_type(file.Get(), &type, nullptr) == 1)
        tree.Bits = type == LIBPFF_FILE_TYPE_32BIT ? 32 : 64;

    TPffItemHandle root;
    if (libpff_file_get_root_folder(file.Get(), root.Out(), error.Out()) != 1 || !root)
        throw core::ETessalyError(QStringLiteral("Can not read the folders of %1: %2").arg(fileName, error.Text()));
    tree.Root = ReadFolder(root.Get(), 0);
    return tree;
}

QString TPffFolderTree::ToText() const
{
    QString text;
    AppendText(Root, 0, text);
    return text;
}

QJsonObject TPffFolderTree::ToJson() const
{
    return QJsonObject{{QStringLiteral("file"), FileName}, {QStringLiteral("format"), Format},
        {QStringLiteral("bits"), Bits}, {QStringLiteral("root"), ToJsonObject(Root)}};
}

} // namespace tessaly::pst
