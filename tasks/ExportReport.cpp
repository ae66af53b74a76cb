#include "tasks/ExportReport.h"

#include "core/Version.h"
#include "platform/StagedFile.h"
#include "tasks/MailTask.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <map>

namespace tessaly::tasks {

namespace {

QString Iso(const QDateTime& when)
{
    return when.isValid() ? when.toUTC().toString(Qt::ISODateWithMs) : QString();
}

const char* ResultName(int result)
{
    switch (result) {
    case trOK: return "written";
    case trSkipped: return "skipped";
    case trExists: return "exists";
    case trCancelled: return "cancelled";
    case trError: return "failed";
    default: return "not converted";
    }
}

} // namespace

QJsonObject TExportReport::ToJson() const
{
    QJsonObject report;
    report[QLatin1String("program")] = QStringLiteral("tessaly");
    report[QLatin1String("version")] = QLatin1String(core::ProductVersion);
    report[QLatin1String("sources")] = QJsonArray::fromStringList(Sources);
    report[QLatin1String("folders")] = QJsonArray::fromStringList(Folders);
    report[QLatin1String("destination")] = Destination;
    report[QLatin1String("format")] = Format;
    report[QLatin1String("options")] = Options;
    report[QLatin1String("started")] = Iso(Started);
    report[QLatin1String("ended")] = Iso(Ended);
    report[QLatin1String("seconds")] = Started.isValid() && Ended.isValid() ? Started.msecsTo(Ended) / 1000.0 : 0.0;
    report[QLatin1String("exitCode")] = ExitCode;
    report[QLatin1String("error")] = Error;

    QJsonObject counts;
    QJsonArray perFolder;
    QJsonArray perSource;
    QJsonArray failures;
    int entries = 0;
    if (Task) {
        entries = int(Task->Entries().size());
        counts[QLatin1String("entries")] = entries;
        counts[QLatin1String("written")] = Task->Written();
        counts[QLatin1String("skipped")] = Task->Filtered();
        counts[QLatin1String("failed")] = Task->Failed();
        counts[QLatin1String("existing")] = Task->Existing();
        counts[QLatin1String("cancelled")] = Task->Cancelled();
        // Per folder (per file for message files), in the order first met.
        struct TFolder {
            int order = 0, entries = 0, written = 0, skipped = 0, failed = 0;
            QString source, path;
        };
        std::map<QString, TFolder> folders;
        for (const TTaskEntry& entry : Task->Entries()) {
            const QString path = entry.InStore ? entry.Folders.join(QLatin1Char('\\')) : QString();
            const QString key = entry.Source + QLatin1Char('\n') + path;
            auto [it, added] = folders.try_emplace(key);
            TFolder& folder = it->second;
            if (added) {
                folder.order = int(folders.size());
                folder.source = entry.Source;
                folder.path = path;
            }
            ++folder.entries;
            folder.written += entry.Result == trOK;
            folder.skipped += entry.Result == trSkipped;
            const bool failed = entry.Result == trError || entry.Result == trExists;
            folder.failed += failed;
            if (failed || (entry.Result != trOK && entry.Result != trSkipped && !entry.Error.isEmpty())) {
                QJsonObject failure;
                failure[QLatin1String("entry")] = entry.Index + 1;
                failure[QLatin1String("source")] = entry.Source;
                failure[QLatin1String("folder")] = path;
                failure[QLatin1String("result")] = QLatin1String(ResultName(entry.Result));
                failure[QLatin1String("reason")] = entry.Error;
                failures.append(failure);
            }
        }
        // Per source: the sums of its folders, in the order first met.
        std::vector<QString> sourceOrder;
        std::map<QString, TFolder> sources;
        for (const auto& [key, folder] : folders) {
            auto [it, added] = sources.try_emplace(folder.source);
            TFolder& sum = it->second;
            if (added || folder.order < sum.order)
                sum.order = folder.order;
            sum.source = folder.source;
            sum.entries += folder.entries;
            sum.written += folder.written;
            sum.skipped += folder.skipped;
            sum.failed += folder.failed;
        }
        std::vector<const TFolder*> bySource;
        for (const auto& [key, sum] : sources)
            bySource.push_back(&sum);
        std::sort(bySource.begin(), bySource.end(), [](const TFolder* a, const TFolder* b) { return a->order < b->order; });
        for (const TFolder* sum : bySource)
            perSource.append(QJsonObject{{QLatin1String("source"), sum->source}, {QLatin1String("entries"), sum->entries},
                {QLatin1String("written"), sum->written}, {QLatin1String("skipped"), sum->skipped}, {QLatin1String("failed"), sum->failed}});
        const auto* mailTask = dynamic_cast<const TMailTask*>(Task);
        counts[QLatin1String("asVCard")] = mailTask ? mailTask->WrittenByKind().value(mctVCard) : 0;
        counts[QLatin1String("asICalendar")] = mailTask ? mailTask->WrittenByKind().value(mctICal) : 0;
        std::vector<const TFolder*> ordered;
        for (const auto& [key, folder] : folders)
            ordered.push_back(&folder);
        std::sort(ordered.begin(), ordered.end(), [](const TFolder* a, const TFolder* b) { return a->order < b->order; });
        for (const TFolder* folder : ordered)
            perFolder.append(QJsonObject{{QLatin1String("source"), folder->source}, {QLatin1String("folder"), folder->path},
                {QLatin1String("entries"), folder->entries}, {QLatin1String("written"), folder->written},
                {QLatin1String("skipped"), folder->skipped}, {QLatin1String("failed"), folder->failed}});
    } else {
        for (const char* name : {"entries", "written", "skipped", "failed", "existing", "asVCard", "asICalendar"})
            counts[QLatin1String(name)] = 0;
        counts[QLatin1String("cancelled")] = false;
    }
    report[QLatin1String("counts")] = counts;
    report[QLatin1String("perFolder")] = perFolder;
    report[QLatin1String("perSource")] = perSource;
    report[QLatin1String("failures")] = failures;
    return report;
}

bool TExportReport::Save(const QString& fileName, QString* error) const
{
    platform::TStagedFile file(fileName);
    if (!file.IsOpen()) {
        if (error)
            *error = file.ErrorString();
        return false;
    }
    const QByteArray json = QJsonDocument(ToJson()).toJson(QJsonDocument::Indented);
    if (file.Device().write(json) != json.size()) {
        if (error)
            *error = file.Device().errorString();
        return false;
    }
    QString target = fileName;
    if (file.Commit(target, {}, true) != platform::lrLinked) {
        if (error)
            *error = file.ErrorString();
        return false;
    }
    return true;
}

} // namespace tessaly::tasks
