// tessaly-inspect: prints what data files hold, as text or JSON.

#include "core/Exceptions.h"
#include "core/Version.h"
#include "mail/FileMailMsg.h"
#include "mail/MailReport.h"
#include "mail/Pictures.h"
#include "pst/PSTFile.h"
#include "pst/PSTMessage.h"
#include "tasks/MailProperties.h"
#include "pst/PSTReport.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QStringList>
#include <cstdio>
#include <functional>
#include <memory>
#include <vector>

namespace {

void PrintUsage()
{
    std::printf("%s", qUtf8Printable(QCoreApplication::translate("InfoTool",
                "Usage: tessaly-inspect FILE... [--json] [--messages]\n"
                "       tessaly-inspect --html [--remote-pictures] FILE [FOLDER/PATH:INDEX]\n"
                "Prints the type and folder tree of each PST or OST file, and the fields of\n"
                "each .msg, .eml, .emlx, .mim or .vcf file.\n"
                "  --messages  every item of every folder with its fields\n"
                "  --json      JSON: one object for one file, an array of them for several\n"
                "  --html      the HTML rendering of a message file, or of the item of a data\n"
                "              file at INDEX (from 0) in the folder named by its path of folder\n"
                "              names below the root, such as \"Inbox:0\" or \"Top/Sent Items:3\";\n"
                "              safe to open: no scripts, handlers, frames or objects, and\n"
                "              nothing loaded from another host\n"
                "  --remote-pictures\n"
                "              with --html: pictures from http and https stay and load\n")));
}


// The message an --html request names.
std::shared_ptr<tessaly::mail::IMailMessage> FindMessage(
    const QString& file, const QString& item, std::unique_ptr<tessaly::pst::TPSTFile>& keep)
{
    using namespace tessaly;
    const QString extension = QFileInfo(file).suffix().toLower();
    if (extension != QLatin1String("pst") && extension != QLatin1String("ost"))
        return mail::TFileMailMsgRequest(file).Message();
    keep = std::make_unique<pst::TPSTFile>(file);
    pst::TPSTFolder* folder = keep->RootFolder();
    if (!folder)
        throw core::ETessalyError(QCoreApplication::translate("InfoTool", "Can not open %1").arg(file));
    const qsizetype colon = item.lastIndexOf(QLatin1Char(':'));
    if (colon < 0)
        throw core::ETessalyError(QCoreApplication::translate("InfoTool", "Name the item as FOLDER/PATH:INDEX"));
    for (const QString& name : item.left(colon).split(QLatin1Char('/'), Qt::SkipEmptyParts)) {
        pst::TPSTFolder* next = nullptr;
        for (int i = 0; i < folder->FolderCount() && !next; ++i)
            if (folder->GetFolder(i)->Name() == name)
                next = folder->GetFolder(i);
        if (!next)
            throw core::ETessalyError(QCoreApplication::translate("InfoTool", "No folder %1 in %2").arg(name, file));
        folder = next;
    }
    bool ok = false;
    const int index = item.mid(colon + 1).toInt(&ok);
    if (!ok || index < 0 || index >= folder->ItemCount())
        throw core::ETessalyError(QCoreApplication::translate("InfoTool", "No item %1 in that folder").arg(item.mid(colon + 1)));
    return pst::adapter::WrapItem(folder->GetItem(index), false);
}

int PrintHtml(const QStringList& args, bool remotePictures)
{
    using namespace tessaly;
    try {
        std::unique_ptr<pst::TPSTFile> file;
        const auto message = FindMessage(args[0], args.value(1), file);
        if (!message)
            throw core::ETessalyError(QCoreApplication::translate("InfoTool", "No message in %1").arg(args[0]));
        std::printf("%s", qUtf8Printable(tasks::StandaloneHtmlPage(*message, remotePictures)));
        return 0;
    } catch (const core::ETessalyError& e) {
        std::fprintf(stderr, "%s\n", qUtf8Printable(e.Message()));
        return 1;
    }
}

} // namespace

// The JSON of every file that opens: one object for one, an array for
// several. Data files are written as they are walked, so that the report
// of a large file is never held whole.
int PrintJson(const QStringList& files, const tessaly::pst::TReportOptions& options,
    const std::function<bool(const QString&)>& isDataFile)
{
    int result = 0;
    struct TSource {
        std::unique_ptr<tessaly::pst::TPSTFile> dataFile;
        QJsonObject message;
    };
    std::vector<TSource> sources;
    for (const auto& file : files) {
        try {
            if (isDataFile(file))
                sources.push_back({tessaly::pst::OpenForReport(file), {}});
            else
                sources.push_back({nullptr, tessaly::mail::ReportMessageFile(file)});
        } catch (const tessaly::core::ETessalyError& e) {
            std::fprintf(stderr, "%s\n", qUtf8Printable(e.Message()));
            result = 1;
        }
    }
    if (sources.empty())
        return result;
    const bool several = sources.size() > 1;
    const int level = several ? 1 : 0;
    const auto write = [](const QByteArray& text) { std::fwrite(text.constData(), 1, size_t(text.size()), stdout); };
    if (several)
        write("[\n");
    for (size_t i = 0; i < sources.size(); ++i) {
        if (several)
            write(QByteArray(4, ' '));
        if (sources[i].dataFile) {
            tessaly::pst::WriteReportJson(*sources[i].dataFile, options, level, write);
            sources[i].dataFile.reset();
        } else {
            QByteArray text = QJsonDocument(sources[i].message).toJson(QJsonDocument::Indented);
            text.chop(1);
            write(several ? text.replace("\n", "\n    ") : text);
        }
        write(i + 1 < sources.size() ? ",\n" : "\n");
    }
    if (several)
        write("]\n");
    return result;
}

int main(int argc, char** argv)
{
    // Its report says why a file cannot be read; the reader's log line
    // would say it twice (QT_LOGGING_RULES brings it back).
    QLoggingCategory::setFilterRules(QStringLiteral("tessaly.pst.open.warning=false"));
    bool json = false, html = false, remotePictures = false;
    tessaly::pst::TReportOptions options;
    QStringList files;
    for (int i = 1; i < argc; ++i) {
        const QString arg = QString::fromLocal8Bit(argv[i]);
        if (arg == QLatin1String("--json")) {
            json = true;
        } else if (arg == QLatin1String("--messages")) {
            options.Messages = true;
        } else if (arg == QLatin1String("--html")) {
            html = true;
        } else if (arg == QLatin1String("--remote-pictures")) {
            remotePictures = true;
        } else if (arg == QLatin1String("--help") || arg == QLatin1String("-h")) {
            PrintUsage();
            return 0;
        } else if (arg == QLatin1String("--version")) {
            std::printf("tessaly-inspect %s\n", tessaly::core::ProductVersion);
            return 0;
        } else if (arg.startsWith(QLatin1Char('-'))) {
            std::fprintf(stderr, "%s\n", qUtf8Printable(QCoreApplication::translate("InfoTool", "Unknown option %1").arg(arg)));
            PrintUsage();
            return 2;
        } else {
            files << arg;
        }
    }
    // --html takes one file (and an item) and no other option;
    // --remote-pictures goes with it only.
    if (files.isEmpty() || (html && (json || options.Messages || files.size() > 2)) || (remotePictures && !html)) {
        PrintUsage();
        return 2;
    }
    if (html) {
        tessaly::mail::UseQtPictures();
        return PrintHtml(files, remotePictures);
    }
    int result = 0;
    const auto isDataFile = [](const QString& file) {
        const QString extension = QFileInfo(file).suffix().toLower();
        return extension == QLatin1String("pst") || extension == QLatin1String("ost");
    };
    if (json)
        return PrintJson(files, options, isDataFile);
    for (const auto& file : files) {
        try {
            if (isDataFile(file))
                std::printf("%s", qUtf8Printable(tessaly::pst::ReportText(tessaly::pst::ReportFile(file, options))));
            else
                std::printf("%s\n%s", qUtf8Printable(file),
                    QJsonDocument(tessaly::mail::ReportMessageFile(file)[QStringLiteral("message")].toObject())
                        .toJson(QJsonDocument::Indented)
                        .constData());
        } catch (const tessaly::core::ETessalyError& e) {
            std::fprintf(stderr, "%s\n", qUtf8Printable(e.Message()));
            result = 1;
        }
    }
    return result;
}
