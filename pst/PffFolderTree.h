#pragma once

#include <QJsonObject>
#include <QString>
#include <vector>

namespace tessaly::pst {

struct TPffFolderNode {
    QString Name;
    int ItemCount = 0;
    std::vector<TPffFolderNode> Children;
};

// The folder tree of a data file as libpff reads it.
struct TPffFolderTree {
    QString FileName;
    QString Format; // "PST", "OST" or "PAB"
    int Bits = 0;   // 32 (ANSI) or 64 (Unicode)
    TPffFolderNode Root;

    // Opens the file read only; throws ETessalyError when it cannot be read.
    static TPffFolderTree Read(const QString& fileName);

    // One line a folder, indented by two blanks a level, with its item count.
    QString ToText() const;
    // {"file", "format", "bits", "root": {"name", "items", "folders": [...]}}
    QJsonObject ToJson() const;
};

} // namespace tessaly::pst
