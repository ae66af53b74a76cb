// tessaly-inspect: prints what a data file holds, as text or JSON.

#include "core/Exceptions.h"
#include "pst/PffFolderTree.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QStringList>
#include <cstdio>

namespace {

void PrintUsage()
{
    std::printf("Usage: tessaly-inspect [--json] FILE...\n"
                "Prints the folder tree of each PST or OST file with the number of items in each folder.\n"
                "With --json: one JSON object for one file, an array of them for several.\n");
}

} // namespace

int main(int argc, char** argv)
{
    bool json = false;
    QStringList files;
    for (int i = 1; i < argc; ++i) {
        const QString arg = QString::fromLocal8Bit(argv[i]);
        if (arg == QLatin1String("--json"))
            json = true;
        else if (arg == QLatin1String("--help") || arg == QLatin1String("-h")) {
            PrintUsage();
            return 0;
        } else if (arg.startsWith(QLatin1Char('-'))) {
            std::fprintf(stderr, "Unknown option %s\n", argv[i]);
            PrintUsage();
            return 2;
        } else
            files << arg;
    }
    if (files.isEmpty()) {
        PrintUsage();
        return 2;
    }
    int result = 0;
    QJsonArray trees;
    for (const auto& file : files) {
        try {
            const auto tree = tessaly::pst::TPffFolderTree::Read(file);
            if (json)
                trees.append(tree.ToJson());
            else
                std::printf("%s\n%s", qUtf8Printable(file), qUtf8Printable(tree.ToText()));
        } catch (const tessaly::core::ETessalyError& e) {
            std::fprintf(stderr, "%s\n", qUtf8Printable(e.Message()));
            result = 1;
        }
    }
    // One file gives one object, several an array of them.
    if (json && !trees.isEmpty()) {
        const QJsonDocument doc = trees.size() == 1 ? QJsonDocument(trees.first().toObject()) : QJsonDocument(trees);
        std::printf("%s", doc.toJson(QJsonDocument::Indented).constData());
    }
    return result;
}
