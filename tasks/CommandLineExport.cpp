#include "tasks/CommandLineExport.h"

#include "pst/PSTProjectData.h"
#include "tasks/ExportReport.h"
#include "tasks/MailEMLTask.h"
#include "tasks/MailExportSource.h"
#include "tasks/MailOtherTasks.h"
#include "tasks/MailPSTTask.h"
#include "tasks/MailTemplate.h"
#include "tasks/ResumeManifest.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <QJsonObject>
#include <QSizeF>

namespace tessaly::tasks {

namespace {

bool IsMessageFile(const QString& fileName)
{
    static const QStringList suffixes = {QStringLiteral("msg"), QStringLiteral("eml"), QStringLiteral("emlx"),
        QStringLiteral("mim"), QStringLiteral("vcf")};
    return suffixes.contains(QFileInfo(fileName).suffix().toLower());
}

int Fail(TExportReport& report, std::FILE* err, int code, const QString& text)
{
    std::fprintf(err, "tessaly: %s\n", qUtf8Printable(text));
    report.Error = text;
    return code;
}

// The data files a list names: one per line, relative to the list's
// folder; blank lines and lines that begin with "#" left out.
QStringList ReadFileList(const QString& listName, QString* error)
{
    QFile list(listName);
    if (!list.open(QIODevice::ReadOnly | QIODevice::Text)) {
        *error = QCoreApplication::translate("CommandLineExport", "Can not read the list %1: %2").arg(listName, list.errorString());
        return {};
    }
    const QDir base = QFileInfo(listName).absoluteDir();
    QStringList files;
    while (!list.atEnd()) {
        const QString line = QString::fromUtf8(list.readLine()).trimmed();
        if (!line.isEmpty() && !line.startsWith(QLatin1Char('#')))
            files << QDir::cleanPath(base.absoluteFilePath(line));
    }
    if (files.isEmpty())
        *error = QCoreApplication::translate("CommandLineExport", "The list %1 names no data file").arg(listName);
    return files;
}

// A folder name per data file: its base name, made safe, with "~2", "~3"...
// after names that come again (without regard to case).
QStringList GroupNames(const QStringList& files)
{
    QStringList names;
    QSet<QString> taken;
    for (const QString& file : files) {
        const QString base = SafeAttachName(QFileInfo(file).completeBaseName(), QStringLiteral("data file"));
        QString name = base;
        for (int k = 2; taken.contains(name.toLower()); ++k)
            name = base + QLatin1Char('~') + QString::number(k);
        taken.insert(name.toLower());
        names << name;
    }
    return names;
}

} // namespace

QList<core::TCommandKey> ExportCommandKeys()
{
    return {{QStringLiteral("dest"), QCoreApplication::translate("CommandLineExport", "Folder the export writes to"), core::TKeyKind::Value, true},
        {QStringLiteral("format"),
            QCoreApplication::translate("CommandLineExport", "Output format: eml (a file per message, the default), msg (an Outlook .msg file per message), "
                           "html (a web page per message), xhtml (an XHTML page per message), pdf (a PDF per message), txt (a text file per message), "
                           "mbox (one mbox file, or one per folder with -KeepFolders), vcf (a vCard per contact), "
                           "ics (an iCalendar file per meeting or appointment) or pst (one data file). In a mail format, contacts are written as vCards "
                           "and calendar items as iCalendar files"),
            core::TKeyKind::Value, false},
        {QStringLiteral("filter"), QCoreApplication::translate("CommandLineExport", "Messages to export, as \"sender=..,rcpt=..,subject=..,body=..,attach=include\""),
            core::TKeyKind::Value, false},
        {QStringLiteral("jobs"), QCoreApplication::translate("CommandLineExport", "Messages converted at once (default: one per core; 1 for one after another)"),
            core::TKeyKind::Value, false},
        {QStringLiteral("KeepFolders"), QCoreApplication::translate("CommandLineExport", "Keep the source's folders: below the destination, or inside the data file"),
            core::TKeyKind::Switch, false},
        {QStringLiteral("list"),
            QCoreApplication::translate("CommandLineExport", "A text file naming data files, one per line, exported in this run as if each were given with -pst"),
            core::TKeyKind::Value, true},
        {QStringLiteral("report"), QCoreApplication::translate("CommandLineExport", "Write a JSON report of the run to FILE"),
            core::TKeyKind::Value, false},
        {QStringLiteral("resume"),
            QCoreApplication::translate("CommandLineExport", "Finish a run into the same destination that was stopped: messages it completed are not written again"),
            core::TKeyKind::Switch, false},
        {QStringLiteral("Paper"), QCoreApplication::translate("CommandLineExport", "Paper of PDF output: a4 (the default), a3, a5, letter or legal"),
            core::TKeyKind::Value, false},
        {QStringLiteral("Landscape"), QCoreApplication::translate("CommandLineExport", "PDF output in landscape"), core::TKeyKind::Switch, false},
        {QStringLiteral("Combine"), QCoreApplication::translate("CommandLineExport", "PDF output: one PDF for the whole run, each message from a new page"),
            core::TKeyKind::Switch, false},
        {QStringLiteral("PicturesBeside"),
            QCoreApplication::translate("CommandLineExport", "HTML output saves the pictures in a folder beside each page instead of inside it"),
            core::TKeyKind::Switch, false},
        {QStringLiteral("vCard"), QCoreApplication::translate("CommandLineExport", "vCard version of contacts: 3 (the default) or 4"),
            core::TKeyKind::Value, false},
        {QStringLiteral("OneFormat"),
            QCoreApplication::translate("CommandLineExport", "Write contacts and calendar items in the chosen format too, not as vCard and iCalendar files"),
            core::TKeyKind::Switch, false},
        {QStringLiteral("RemotePictures"),
            QCoreApplication::translate("CommandLineExport", "HTML output keeps pictures from other hosts (opening the page then asks those hosts for them)"),
            core::TKeyKind::Switch, false}};
}

bool IsExportRun(const core::TCommandLine& commandLine)
{
    return commandLine.HasKey(QStringLiteral("dest"));
}

bool ExportPrintsPages(const core::TCommandLine& commandLine)
{
    return IsExportRun(commandLine) && commandLine.Value(QStringLiteral("format")).toLower() == QLatin1String("pdf");
}

namespace {

int RunExport(const core::TCommandLine& commandLine, pst::TPSTProjectData& projectData, std::FILE* out, std::FILE* err,
    TExportReport& report, std::unique_ptr<TMailTask>& owned)
{
    const QString format = commandLine.Value(QStringLiteral("format")).toLower();
    static const QList<QPair<QString, TMailConvertType>> Formats = {{QStringLiteral("eml"), mctEML},
        {QStringLiteral("msg"), mctMSG}, {QStringLiteral("html"), mctHTML}, {QStringLiteral("txt"), mctTXT},
        {QStringLiteral("mbox"), mctMBox}, {QStringLiteral("vcf"), mctVCard},
        {QStringLiteral("ics"), mctICal}, {QStringLiteral("pdf"), mctPDF}, {QStringLiteral("pst"), mctPST},
        {QStringLiteral("xhtml"), mctXHTML}};
    TMailConvertType convertType = mctEML;
    bool known = format.isEmpty();
    for (const auto& [name, type] : Formats)
        if (format == name) {
            convertType = type;
            known = true;
        }
    if (!known)
        return Fail(report, err, core::crCommandLine,
            QCoreApplication::translate("CommandLineExport", "unknown format \"%1\": eml, msg, html, xhtml, pdf, txt, mbox, vcf, ics and pst are the formats offered").arg(format));
    // Formats that write one file for the whole run.
    const bool toDataFile = convertType == mctPST || convertType == mctMBox;
    const QString oneFileSuffix = convertType == mctPST ? QStringLiteral(".pst") : QStringLiteral(".mbox");
    int workers = 0;
    if (commandLine.HasKey(QStringLiteral("jobs"))) {
        bool ok = false;
        workers = commandLine.Value(QStringLiteral("jobs")).toInt(&ok);
        if (!ok || workers < 1 || workers > 256)
            return Fail(report, err, core::crCommandLine,
                QCoreApplication::translate("CommandLineExport", "-jobs takes a number from 1 to 256, not \"%1\"").arg(commandLine.Value(QStringLiteral("jobs"))));
    }
    QString destination = commandLine.Value(QStringLiteral("dest"));
    if (destination.isEmpty())
        return Fail(report, err, core::crNoSource, QCoreApplication::translate("CommandLineExport", "no destination: give -dest FOLDER"));

    TMailProperties properties;
    properties.SetConvertType(convertType);
    properties.ApplyCommandLine(commandLine);
    // Switches: given alone they are on; "-KeepFolders=false" is off.
    const auto on = [&](const QString& key) { return commandLine.HasKey(key) && commandLine.Switch(key); };
    properties.KeepFolderStructure = on(QStringLiteral("KeepFolders"));
    properties.RemotePictures = on(QStringLiteral("RemotePictures"));
    properties.PicturesBeside = on(QStringLiteral("PicturesBeside"));
    properties.OneFormat = on(QStringLiteral("OneFormat"));
    if (on(QStringLiteral("Combine"))) {
        if (convertType != mctPDF)
            return Fail(report, err, core::crCommandLine,
                QCoreApplication::translate("CommandLineExport", "-Combine goes with -format pdf"));
        properties.CombineFiles = true;
        properties.UseFileNameTemplate = false;
    }
    if (commandLine.HasKey(QStringLiteral("vCard"))) {
        const QString version = commandLine.Value(QStringLiteral("vCard"));
        if (version != QLatin1String("3") && version != QLatin1String("4"))
            return Fail(report, err, core::crCommandLine,
                QCoreApplication::translate("CommandLineExport", "-vCard takes 3 or 4, not \"%1\"").arg(version));
        properties.VCardVersion = version.toInt();
    }
    if (commandLine.HasKey(QStringLiteral("Paper"))) {
        const QString paper = commandLine.Value(QStringLiteral("Paper")).toLower();
        bool found = false;
        for (const auto& [name, size] : PaperSizes())
            if (paper == name) {
                properties.Paper().Width = size.width();
                properties.Paper().Height = size.height();
                found = true;
            }
        if (!found)
            return Fail(report, err, core::crCommandLine,
                QCoreApplication::translate("CommandLineExport", "unknown paper \"%1\": a4, a3, a5, letter and legal are the sizes offered").arg(paper));
    }
    if (on(QStringLiteral("Landscape")))
        std::swap(properties.Paper().Width, properties.Paper().Height);
    // A data file (an mbox file) is named by its destination when that ends
    // in ".pst" (".mbox"); otherwise the destination is the folder of
    // "Outlook.pst" ("EMails.mbox").
    if (toDataFile && !destination.endsWith(oneFileSuffix, Qt::CaseInsensitive))
        destination = QDir(destination).absolutePath() + QLatin1Char('/');
    properties.Destination = destination;
    if (toDataFile)
        properties.InitDestination({}, {});
    properties.CheckFileMode = cfmRename; // a run without a window never replaces a file
    if (commandLine.HasKey(QStringLiteral("filter"))) {
        properties.Filter.SetCmd(commandLine.Value(QStringLiteral("filter")));
        properties.Filter.Enabled = true;
    }
    owned = CreateMailTask(properties);
    if (!owned)
        return Fail(report, err, core::crCommandLine,
            QCoreApplication::translate("CommandLineExport", "this program has no writer of the format \"%1\"").arg(format));
    TMailTask& task = *owned;
    report.Task = &task;
    const bool resume = on(QStringLiteral("resume"));
    const bool oneFile = toDataFile || properties.CombineFiles;
    if (oneFile && resume)
        return Fail(report, err, core::crCommandLine,
            QCoreApplication::translate("CommandLineExport", "-resume goes with formats that write a file per message, not with %1").arg(format));
    report.Format = format.isEmpty() ? QStringLiteral("eml") : format;
    report.Destination = QFileInfo(properties.Destination).absoluteFilePath();
    report.Options = QJsonObject{{QLatin1String("jobs"), workers}, {QLatin1String("keepFolders"), properties.KeepFolderStructure},
        {QLatin1String("filter"), commandLine.Value(QStringLiteral("filter"))},
        {QLatin1String("remotePictures"), properties.RemotePictures},
        {QLatin1String("picturesBeside"), properties.PicturesBeside},
        {QLatin1String("combine"), properties.CombineFiles && convertType == mctPDF},
        {QLatin1String("vCard"), properties.VCardVersion},
        {QLatin1String("oneFormat"), properties.OneFormat},
        {QLatin1String("attachSave"), properties.Attach.Has(aotSave)}};
    task.SetWorkers(workers);

    // The sources: message files, and folder paths of the data file.
    QStringList folderPaths;
    for (const QString& source : commandLine.Sources()) {
        if (IsMessageFile(source)) {
            if (!QFileInfo::exists(source))
                return Fail(report, err, core::crInvalidSource, QCoreApplication::translate("CommandLineExport", "%1 does not exist").arg(source));
            AddMessageFileEntry(task, source);
            report.Sources << QFileInfo(source).absoluteFilePath();
        } else {
            folderPaths << source;
        }
    }
    // The data files: every -pst, and the files of the -list.
    QStringList dataFiles = commandLine.Values(QStringLiteral("pst"));
    if (commandLine.HasKey(QStringLiteral("list"))) {
        const QString listName = commandLine.Value(QStringLiteral("list"));
        QString error;
        const QStringList listed = ReadFileList(listName, &error);
        if (!error.isEmpty())
            return Fail(report, err, core::crInvalidSource, error);
        dataFiles << listed;
    }
    const bool messageFilesOnly = task.Entries().size() > 0 && folderPaths.isEmpty();
    bool sourceFailed = false;
    if (!messageFilesOnly || !dataFiles.isEmpty()) {
        if (projectData.CheckOutlookRunning())
            return Fail(report, err, core::crException, QCoreApplication::translate("CommandLineExport", "Outlook is running. Please, close Outlook"));
        if (dataFiles.isEmpty()) {
            const QString fileName = projectData.FindDefaultPST();
            if (fileName.isEmpty())
                return Fail(report, err, core::crNoSource, QCoreApplication::translate("CommandLineExport", "Can not find default outlook data file"));
            dataFiles << fileName;
        }
        report.Folders = folderPaths;
        if (folderPaths.isEmpty())
            folderPaths << QString();
        // Several data files: the outputs of each go below a folder of its
        // own, named after the file; their messages share the workers.
        const QStringList groups = dataFiles.size() > 1 ? GroupNames(dataFiles) : QStringList(QString());
        for (qsizetype f = 0; f < dataFiles.size(); ++f) {
            const QString& fileName = dataFiles[f];
            report.Sources << QFileInfo(fileName).absoluteFilePath();
            QString error;
            auto file = std::make_shared<pst::TPSTFile>(fileName);
            if (!file->RootFolder())
                error = QCoreApplication::translate("CommandLineExport", "Can not load outlook data file - ") + fileName;
            const qsizetype first = task.Entries().size();
            for (const QString& path : folderPaths) {
                if (!error.isEmpty())
                    break;
                const QStringList names = SplitFolderPath(path);
                pst::TPSTFolder* folder = FindFolderByPath(*file, names);
                if (!folder)
                    error = QCoreApplication::translate("CommandLineExport", "no folder \"%1\" in %2").arg(path, fileName);
                else
                    AddFolderEntries(task, file, folder, names.isEmpty() ? QStringList() : FolderNames(folder), true);
            }
            if (!error.isEmpty()) {
                // One file that cannot be read ends a run of that file; in a
                // run of several, the others are exported all the same.
                if (dataFiles.size() == 1)
                    return Fail(report, err, core::crInvalidSource, error);
                std::fprintf(err, "tessaly: %s\n", qUtf8Printable(error));
                report.Error += (report.Error.isEmpty() ? QString() : QStringLiteral("\n")) + error;
                sourceFailed = true;
                continue;
            }
            for (qsizetype i = first; i < qsizetype(task.Entries().size()); ++i)
                task.Entries()[size_t(i)].Group = groups[f];
        }
    }

    // Outputs of their own per message: the run keeps the record of what it
    // completed in the destination, and -resume reads it. Opened once the
    // sources are known to be there: a run that cannot start makes nothing.
    if (!oneFile) {
        auto manifest = std::make_shared<TResumeManifest>();
        QString error;
        if (!manifest->Open(properties.Destination, resume, &error))
            return Fail(report, err, core::crInvalidSource, error);
        task.SetManifest(std::move(manifest));
    }

    QElapsedTimer shown;
    shown.start();
    task.OnProgress = [&](const TTaskProgress& progress) {
        if (progress.Done == progress.Total || shown.elapsed() >= 250) {
            shown.restart();
            std::fprintf(err, "%d/%d %s\n", progress.Done, progress.Total, qUtf8Printable(progress.Current.left(70)));
        }
    };
    if (!oneFile)
        QDir().mkpath(destination);
    task.Run();
    if (task.Resumed() > 0)
        std::fprintf(err, "%s\n",
            qUtf8Printable(QCoreApplication::translate("CommandLineExport", "%1 messages were complete from the run before").arg(task.Resumed())));
    for (const QString& line : task.Log())
        std::fprintf(err, "%s\n", qUtf8Printable(line));
    const int total = int(task.Entries().size());
    std::fprintf(out, "%s\n",
        qUtf8Printable(QCoreApplication::translate("CommandLineExport", "%1 messages: %2 written, %3 skipped by the filter, %4 failed; in %5")
                           .arg(total)
                           .arg(task.Written())
                           .arg(task.Filtered())
                           .arg(task.Failed() + task.Existing())
                           .arg(QDir::toNativeSeparators(properties.Destination))));
    // The data file is written at the end of the run; it must be there.
    const bool written = !toDataFile || task.Written() == 0 || QFileInfo::exists(properties.Destination);
    // A message file that is no message, or a damaged one, is a bad source.
    for (const TTaskEntry& entry : task.Entries())
        if (entry.InvalidSource)
            return core::crInvalidSource;
    if (sourceFailed)
        return core::crInvalidSource;
    return task.Failed() + task.Existing() == 0 && !task.Cancelled() && written ? core::crOK : 1;
}

} // namespace

int RunCommandLineExport(const core::TCommandLine& commandLine, pst::TPSTProjectData& projectData, std::FILE* out,
    std::FILE* err)
{
    TExportReport report;
    report.Started = QDateTime::currentDateTimeUtc();
    std::unique_ptr<TMailTask> task;
    const int code = RunExport(commandLine, projectData, out, err, report, task);
    report.Ended = QDateTime::currentDateTimeUtc();
    report.ExitCode = code;
    // The report of every run, a failed one too.
    if (commandLine.HasKey(QStringLiteral("report"))) {
        const QString fileName = commandLine.Value(QStringLiteral("report"));
        QString error;
        if (fileName.isEmpty() || !report.Save(fileName, &error)) {
            std::fprintf(err, "tessaly: %s\n",
                qUtf8Printable(QCoreApplication::translate("CommandLineExport", "Can not write the report %1: %2").arg(fileName, error)));
            return code == core::crOK ? 1 : code;
        }
    }
    return code;
}

} // namespace tessaly::tasks
