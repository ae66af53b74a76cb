// Every export format over every sample: each data file of testdata/pst and
// all the message files of testdata/msg and testdata/eml exported from the
// command line, the report's counts held against the items our reader
// (tessaly-inspect) finds in the source, and every output read back by a
// reader that owes nothing to ours (read-back.py beside this file; msgreader
// from npm for .msg files, and our own reader too). An output is read by its
// extension, whatever the run's format: a mail format may write contacts as
// vCards and calendar items as iCalendar files.
//
// Outputs are tied to their items by the running number that starts their
// names ("[nn]. [date] - [subject]", the default template): the item's place
// in the run, the order tessaly-inspect lists them in.

#include "TestUtil.h"
#include "integration/RunUtil.h"
#include "mail/MsgReaderModule.h"

#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>

using tessaly::test::TestData;

namespace {

// The system's Python, which has python3-vobject and python3-icalendar.
const QString Python = QStringLiteral("/usr/bin/python3");

struct TItem {
    QString kind;       // "mail", "meeting" or "contact"
    QString subject;
    QString name;       // a contact's full name
    QStringList emails; // a contact's e-mail addresses
    QString start, end; // a meeting's, ISO 8601 in UTC
};

// One export's source: a data file, or every sample message file at once.
struct TSource {
    QString label;
    bool dataFile = true;
    QStringList args; // the source's part of the command line
    std::vector<TItem> items;                    // in the run's order
    std::vector<std::pair<QString, int>> parts;  // folder path or message file, and its items
};

QString Spaced(const QString& text)
{
    return text.simplified();
}

QString Str(const QJsonValue& value)
{
    return value.isString() ? value.toString() : QString();
}

// A program of the build.
QString App(const char* name)
{
    return QStringLiteral(TESSALY_BINARY_DIR "/app/") + QLatin1String(name);
}

// A program as a user runs it: no display, English texts.
TRun Run(const QString& program, const QStringList& args)
{
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM", "LANGUAGE", "LANG"})
        env.remove(QLatin1String(name));
    env.insert(QStringLiteral("LC_ALL"), QStringLiteral("C.UTF-8"));
    process.setProcessEnvironment(env);
    process.start(program, args);
    EXPECT_TRUE(process.waitForFinished(600000)) << program.toStdString();
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
        QString::fromUtf8(process.readAllStandardOutput()), QString::fromUtf8(process.readAllStandardError())};
}

TItem ItemOf(const QJsonObject& m, bool fromDataFile)
{
    TItem item;
    item.kind = Str(m[QLatin1String("class")]);
    item.subject = Str(m[QLatin1String("subject")]);
    item.start = Str(m[QLatin1String("start")]);
    item.end = Str(m[QLatin1String("end")]);
    if (item.kind == QLatin1String("contact")) {
        // A data file's contact lists the stored fields (display name
        // first, the three addresses at 21 to 23); a message file's the
        // fields of a contact seen as a message (full name first, the
        // addresses joined at 4).
        const QJsonArray fields = m[QLatin1String("fields")].toArray();
        item.name = Str(fields[0]);
        QStringList emails;
        if (fromDataFile)
            emails = {Str(fields[21]), Str(fields[22]), Str(fields[23])};
        else
            emails = Str(fields[4]).split(QLatin1Char(','));
        for (const QString& email : emails)
            if (!email.trimmed().isEmpty())
                item.emails << email.trimmed();
    }
    return item;
}

void Walk(const QJsonObject& folder, const QString& path, TSource& source)
{
    const QJsonArray messages = folder[QLatin1String("messages")].toArray();
    if (!messages.isEmpty())
        source.parts.emplace_back(path, int(messages.size()));
    for (const auto& m : messages)
        source.items.push_back(ItemOf(m.toObject(), true));
    for (const auto& child : folder[QLatin1String("folders")].toArray()) {
        const QString name = Str(child.toObject()[QLatin1String("name")]);
        Walk(child.toObject(), path.isEmpty() ? name : path + QLatin1Char('\\') + name, source);
    }
}

// The sources with their items as our reader lists them; read once.
const std::vector<TSource>& Sources()
{
    static const std::vector<TSource> sources = [] {
        std::vector<TSource> out;
        const QDir pst(TestData(QStringLiteral("pst")));
        for (const QFileInfo& file : pst.entryInfoList(QDir::Files, QDir::Name)) {
            TSource source;
            source.label = file.fileName();
            source.args = {QStringLiteral("-pst"), file.absoluteFilePath()};
            const TRun inspect = Run(App("tessaly-inspect"), {QStringLiteral("--json"), QStringLiteral("--messages"), file.absoluteFilePath()});
            EXPECT_EQ(inspect.exitCode, 0) << inspect.err.toStdString();
            Walk(QJsonDocument::fromJson(inspect.out.toUtf8()).object()[QLatin1String("root")].toObject(), {}, source);
            out.push_back(std::move(source));
        }
        TSource files;
        files.label = QStringLiteral("message files");
        files.dataFile = false;
        for (const QString& dir : {QStringLiteral("msg"), QStringLiteral("eml")})
            for (const QFileInfo& file : QDir(TestData(dir)).entryInfoList(QDir::Files, QDir::Name))
                files.args << file.absoluteFilePath();
        const TRun inspect = Run(App("tessaly-inspect"), QStringList{QStringLiteral("--json")} + files.args);
        EXPECT_EQ(inspect.exitCode, 0) << inspect.err.toStdString();
        const QJsonArray read = QJsonDocument::fromJson(inspect.out.toUtf8()).array();
        EXPECT_EQ(read.size(), files.args.size());
        for (const auto& value : read) {
            const QJsonObject file = value.toObject();
            files.items.push_back(ItemOf(file[QLatin1String("message")].toObject(), false));
            files.parts.emplace_back(Str(file[QLatin1String("file")]), 1);
        }
        out.push_back(std::move(files));
        return out;
    }();
    return sources;
}

// What `tessaly --help` offers: formats and keys that may not exist yet.
bool Offers(const QString& text)
{
    static const QString help = Run(App("tessaly"), {QStringLiteral("--help")}).out;
    return help.contains(text);
}

enum class TVariant { Default, OneFormat };

struct TFormat {
    QString name;
    bool mail; // a mail format: contacts and calendar items may go to .vcf and .ics
};

// An output and the item it was written from (null until matched, for an
// output whose name has no number).
struct TOutput {
    QString path;
    const TItem* item = nullptr;
};

// One export: its outputs, which items they took, its mbox file.
struct TExport {
    const TSource* source = nullptr;
    TFormat format;
    TVariant variant = TVariant::Default;
    int written = 0;
    std::vector<TOutput> outputs;
    std::vector<int> taken; // outputs per item
    QStringList mboxFiles;
};

QJsonObject ReadJsonFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()).object() : QJsonObject();
}

bool IsCard(const QString& extension)
{
    return extension == QLatin1String("vcf") || extension == QLatin1String("ics");
}

// One export of one source: the report's counts against the source's items,
// and the outputs with the numbers that tie them to their items.
void Export(TExport& run, const QString& dest, QMap<QString, int>& byExtension)
{
    const TSource& source = *run.source;
    SCOPED_TRACE(("-format " + run.format.name + " " + source.label + (run.variant == TVariant::OneFormat ? " -OneFormat" : "")).toStdString());
    const QString reportPath = dest + QStringLiteral(".report.json");
    QStringList args = source.args;
    args << QStringLiteral("-dest") << dest << QStringLiteral("-format") << run.format.name << QStringLiteral("-report") << reportPath;
    if (run.variant == TVariant::OneFormat)
        args << QStringLiteral("-OneFormat");
    const TRun exported = Run(App("tessaly"), args);
    ASSERT_EQ(exported.exitCode, 0) << exported.err.toStdString();
    const QJsonObject report = ReadJsonFile(reportPath);
    ASSERT_FALSE(report.isEmpty()) << "no report";
    EXPECT_EQ(Str(report[QLatin1String("format")]), run.format.name);
    const QJsonObject counts = report[QLatin1String("counts")].toObject();
    const int entries = counts[QLatin1String("entries")].toInt(), skipped = counts[QLatin1String("skipped")].toInt(),
              failed = counts[QLatin1String("failed")].toInt();
    run.written = counts[QLatin1String("written")].toInt();
    EXPECT_EQ(entries, int(source.items.size()));
    EXPECT_EQ(run.written + skipped + failed, entries);
    EXPECT_EQ(failed, 0) << QJsonDocument(report[QLatin1String("failures")].toArray()).toJson().toStdString();
    // Folder by folder (file by file), as our reader counts them.
    const QJsonArray perFolder = report[QLatin1String("perFolder")].toArray();
    ASSERT_EQ(perFolder.size(), qsizetype(source.parts.size()));
    for (qsizetype i = 0; i < perFolder.size(); ++i) {
        const QJsonObject part = perFolder[i].toObject();
        const auto& [name, items] = source.parts[size_t(i)];
        EXPECT_EQ(Str(part[source.dataFile ? QLatin1String("folder") : QLatin1String("source")]), name);
        EXPECT_EQ(part[QLatin1String("entries")].toInt(), items) << name.toStdString();
        EXPECT_EQ(part[QLatin1String("written")].toInt() + part[QLatin1String("skipped")].toInt() + part[QLatin1String("failed")].toInt(), items);
    }

    static const QRegularExpression Numbered(QStringLiteral("^(\\d+)\\. "));
    run.taken.assign(source.items.size(), 0);
    const bool cards = run.format.mail && run.variant == TVariant::Default;
    for (QDirIterator it(dest, QDir::Files, QDirIterator::Subdirectories); it.hasNext();) {
        const QFileInfo file(it.next());
        const QString extension = file.suffix().toLower();
        ++byExtension[extension];
        if (extension == QLatin1String("mbox") && run.format.name == QLatin1String("mbox")) {
            run.mboxFiles << file.filePath();
            continue;
        }
        // The format's own extension (XHTML pages are .html files, as
        // browsers take them for web pages), or, for a mail format, a vCard
        // of a contact or an iCalendar file of a calendar item.
        const bool own = extension == run.format.name
            || (run.format.name == QLatin1String("xhtml") && extension == QLatin1String("html"));
        EXPECT_TRUE(own || (cards && IsCard(extension))) << file.filePath().toStdString();
        const auto match = Numbered.match(file.fileName());
        TOutput output{file.filePath(), nullptr};
        if (match.hasMatch()) {
            const int number = match.captured(1).toInt();
            ASSERT_TRUE(number >= 1 && number <= int(source.items.size())) << file.filePath().toStdString();
            output.item = &source.items[size_t(number - 1)];
            ++run.taken[size_t(number - 1)];
        } else {
            // vCards and iCalendar files beside an mbox file are named
            // after their contact or item alone: matched by what they hold.
            EXPECT_TRUE(cards && IsCard(extension)) << "an output without its number: " << file.filePath().toStdString();
        }
        run.outputs.push_back(output);
    }
}

// A numberless vCard or iCalendar file tied to the first item not yet taken
// that it holds the name (with the addresses) or subject (with the times) of.
void Match(TExport& run, TOutput& output, const QJsonObject& read)
{
    const QString extension = QFileInfo(output.path).suffix().toLower();
    const QJsonObject first = read[extension == QLatin1String("vcf") ? QLatin1String("cards") : QLatin1String("events")].toArray().first().toObject();
    for (size_t i = 0; i < run.source->items.size(); ++i) {
        const TItem& item = run.source->items[i];
        if (run.taken[i])
            continue;
        QStringList emails;
        for (const auto& email : first[QLatin1String("emails")].toArray())
            emails << email.toString();
        const bool same = extension == QLatin1String("vcf")
            ? item.kind == QLatin1String("contact") && Str(first[QLatin1String("fn")]) == item.name.trimmed() && emails == item.emails
            : item.kind == QLatin1String("meeting") && Spaced(Str(first[QLatin1String("summary")])) == Spaced(item.subject)
                && Str(first[QLatin1String("start")]) == item.start && Str(first[QLatin1String("end")]) == item.end;
        if (same) {
            output.item = &item;
            ++run.taken[i];
            return;
        }
    }
    ADD_FAILURE() << output.path.toStdString() << " holds no item of the source: " << QJsonDocument(read).toJson().toStdString();
}

// After the outputs are read back: each item has the outputs its format
// gives it, and the counts add up.
void CheckOutputs(const TExport& run)
{
    const TSource& source = *run.source;
    SCOPED_TRACE(("-format " + run.format.name + " " + source.label + (run.variant == TVariant::OneFormat ? " -OneFormat" : "")).toStdString());
    const bool mbox = run.format.name == QLatin1String("mbox");
    for (size_t i = 0; i < source.items.size(); ++i) {
        const TItem& item = source.items[i];
        // vCards are written of contacts only, iCalendar files of calendar
        // items only, the other formats write every item (an mbox file
        // holds those not written beside it).
        const bool writes = run.format.name == QLatin1String("vcf") ? item.kind == QLatin1String("contact")
            : run.format.name == QLatin1String("ics")               ? item.kind == QLatin1String("meeting")
                                                                    : true;
        if (mbox)
            EXPECT_LE(run.taken[i], 1) << "item " << i + 1 << " " << item.subject.toStdString();
        else
            EXPECT_EQ(run.taken[i], writes ? 1 : 0) << "item " << i + 1 << " " << item.subject.toStdString();
    }
    if (mbox)
        EXPECT_EQ(run.mboxFiles.size(), 1) << run.mboxFiles.join(QLatin1Char(' ')).toStdString();
    else
        EXPECT_EQ(run.written, int(run.outputs.size()));
}

// The subjects an mbox file of the run should hold: of every item not
// written beside it, in order.
QStringList MBoxSubjects(const TExport& run)
{
    QStringList subjects;
    for (size_t i = 0; i < run.source->items.size(); ++i)
        if (!run.taken[i])
            subjects << Spaced(run.source->items[i].subject);
    return subjects;
}

// What read-back.py reads of each file, by path; with `xml`, web pages are
// read as XHTML too.
QJsonObject ReadBack(const QStringList& files, bool xml)
{
    if (files.isEmpty())
        return {};
    QStringList args{QStringLiteral(TESSALY_SOURCE_DIR "/tests/integration/read-back.py")};
    if (xml)
        args << QStringLiteral("--xml");
    const TRun run = Run(Python, args + files);
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    return QJsonDocument::fromJson(run.out.toUtf8()).object();
}

// Each .msg file as our own reader reads it, by path.
QJsonObject ReadWithInspect(const QStringList& files)
{
    QJsonObject out;
    if (files.isEmpty())
        return out;
    const TRun run = Run(App("tessaly-inspect"), QStringList{QStringLiteral("--json")} + files);
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    const QJsonDocument document = QJsonDocument::fromJson(run.out.toUtf8());
    const QJsonArray read = document.isArray() ? document.array() : QJsonArray{document.object()};
    for (const auto& value : read)
        out[Str(value.toObject()[QLatin1String("file")])] = value.toObject()[QLatin1String("message")];
    return out;
}

// The subject or name the reader should find for the item.
QString Expected(const TItem& item, bool card)
{
    return Spaced(card && item.kind == QLatin1String("contact") ? item.name : item.subject);
}

// `xml`: a web page must also be well-formed XML.
void CheckRead(const TOutput& output, const QJsonObject& read, bool xml)
{
    const TItem& item = *output.item;
    const QString extension = QFileInfo(output.path).suffix().toLower();
    SCOPED_TRACE(output.path.toStdString());
    ASSERT_FALSE(read.isEmpty()) << "not read";
    ASSERT_FALSE(read.contains(QLatin1String("error"))) << Str(read[QLatin1String("error")]).toStdString();
    if (extension == QLatin1String("eml")) {
        EXPECT_EQ(Str(read[QLatin1String("subject")]), Expected(item, false));
        EXPECT_GE(read[QLatin1String("parts")].toInt(), 1);
    } else if (extension == QLatin1String("txt")) {
        EXPECT_EQ(Str(read[QLatin1String("subject")]), Expected(item, false));
    } else if (extension == QLatin1String("html") || extension == QLatin1String("xhtml")) {
        // A contact is shown as a card with its name, the others under a
        // header block with the subject.
        // (A <title> is the message body's own, when it has one.) An XHTML
        // page is read as XML as well: well-formed, the same header block.
        const QLatin1String field(item.kind == QLatin1String("contact") ? "name" : "subject");
        EXPECT_EQ(Str(read[field]), Expected(item, true));
        if (xml || extension == QLatin1String("xhtml")) {
            const QJsonObject asXml = extension == QLatin1String("xhtml") ? read : read[QLatin1String("xml")].toObject();
            ASSERT_FALSE(asXml.isEmpty()) << "not read as XML";
            ASSERT_FALSE(asXml.contains(QLatin1String("error"))) << "no well-formed XML: " << Str(asXml[QLatin1String("error")]).toStdString();
            EXPECT_EQ(Str(asXml[field]), Expected(item, true));
        }
    } else if (extension == QLatin1String("pdf")) {
        // pdftotext (-raw) ends a line the engine broke at a soft hyphen
        // after the hyphen: the two halves of the word come apart.
        const QString text = Str(read[QLatin1String("text")]).replace(QStringLiteral("\u00AD "), QStringLiteral("\u00AD"));
        EXPECT_TRUE(text.contains(Expected(item, true))) << Expected(item, true).toStdString() << "\n" << text.left(400).toStdString();
    } else if (extension == QLatin1String("vcf")) {
        ASSERT_EQ(item.kind, QLatin1String("contact"));
        const QJsonArray cards = read[QLatin1String("cards")].toArray();
        ASSERT_EQ(cards.size(), 1);
        const QJsonObject card = cards[0].toObject();
        EXPECT_EQ(Str(card[QLatin1String("fn")]), item.name.trimmed());
        QStringList emails;
        for (const auto& email : card[QLatin1String("emails")].toArray())
            emails << email.toString();
        EXPECT_EQ(emails, item.emails);
    } else if (extension == QLatin1String("ics")) {
        ASSERT_EQ(item.kind, QLatin1String("meeting"));
        const QJsonArray events = read[QLatin1String("events")].toArray();
        ASSERT_EQ(events.size(), 1);
        const QJsonObject event = events[0].toObject();
        EXPECT_EQ(Spaced(Str(event[QLatin1String("summary")])), Expected(item, false));
        EXPECT_EQ(Str(event[QLatin1String("start")]), item.start);
        EXPECT_EQ(Str(event[QLatin1String("end")]), item.end);
    } else {
        ADD_FAILURE() << "an output no reader reads";
    }
}

// An .msg file as our reader (tessaly-inspect) and msgreader read it.
void CheckMsg(const TOutput& output, const QJsonObject& ours, const QJsonObject& theirs, bool withMsgReader)
{
    SCOPED_TRACE(output.path.toStdString());
    ASSERT_FALSE(ours.isEmpty()) << "not read by our reader";
    EXPECT_EQ(Spaced(Str(ours[QLatin1String("subject")])), Expected(*output.item, false));
    EXPECT_EQ(Str(ours[QLatin1String("class")]), output.item->kind);
    if (!withMsgReader)
        return;
    ASSERT_FALSE(theirs.isEmpty()) << "not read by msgreader";
    ASSERT_FALSE(theirs.contains(QLatin1String("error"))) << Str(theirs[QLatin1String("error")]).toStdString();
    // msgreader keeps the terminating NUL of some strings.
    QString subject = Str(theirs[QLatin1String("subject")]);
    while (subject.endsWith(QChar(0)))
        subject.chop(1);
    EXPECT_EQ(Spaced(subject), Expected(*output.item, false));
}

// The whole round trip of a format: every source exported, every output
// read back and compared with its item.
void RoundTrip(const TFormat& format, const std::vector<TVariant>& variants)
{
    if (!QFileInfo::exists(Python))
        GTEST_SKIP() << Python.toStdString() << " is not installed";
    ASSERT_FALSE(Sources().empty());
    QElapsedTimer timer;
    timer.start();
    QTemporaryDir out;
    std::vector<TExport> runs;
    QMap<QString, int> byExtension;
    int items = 0;
    for (const TVariant variant : variants)
        for (const TSource& source : Sources()) {
            runs.push_back({&source, format, variant, 0, {}, {}, {}});
            Export(runs.back(), out.filePath(QStringLiteral("%1-%2").arg(runs.size()).arg(source.label)), byExtension);
            items += int(source.items.size());
            if (::testing::Test::HasFatalFailure())
                return;
        }
    const qint64 exported = timer.elapsed();

    QStringList msgFiles, otherFiles;
    for (const TExport& run : runs) {
        for (const TOutput& output : run.outputs)
            (output.path.endsWith(QLatin1String(".msg")) ? msgFiles : otherFiles) << output.path;
        otherFiles << run.mboxFiles;
    }
    const QJsonObject read = ReadBack(otherFiles, format.name == QLatin1String("xhtml"));
    const QJsonObject ours = ReadWithInspect(msgFiles);
    QString skip;
    const QJsonObject theirs = msgFiles.isEmpty() ? QJsonObject() : tessaly::test::MsgReaderSubjects(msgFiles, skip);
    int mboxMessages = 0;
    for (TExport& run : runs) {
        for (TOutput& output : run.outputs) {
            if (!output.item)
                Match(run, output, read[output.path].toObject());
            if (!output.item)
                continue;
            if (output.path.endsWith(QLatin1String(".msg")))
                CheckMsg(output, ours[output.path].toObject(), theirs[output.path].toObject(), skip.isEmpty());
            else
                CheckRead(output, read[output.path].toObject(), format.name == QLatin1String("xhtml"));
        }
        CheckOutputs(run);
        for (const QString& path : run.mboxFiles) {
            SCOPED_TRACE(path.toStdString());
            const QJsonObject box = read[path].toObject();
            ASSERT_FALSE(box.contains(QLatin1String("error"))) << Str(box[QLatin1String("error")]).toStdString();
            QStringList subjects;
            for (const auto& subject : box[QLatin1String("subjects")].toArray())
                subjects << Str(subject);
            EXPECT_EQ(subjects, MBoxSubjects(run));
            EXPECT_EQ(run.written, int(subjects.size() + run.outputs.size()));
            mboxMessages += int(subjects.size());
        }
    }

    QStringList counts;
    int outputs = 0;
    for (auto it = byExtension.cbegin(); it != byExtension.cend(); ++it) {
        counts << QStringLiteral("%1 .%2").arg(it.value()).arg(it.key());
        outputs += it.value();
    }
    std::printf("-format %s: %d runs over %d items; outputs %s%s; exported in %.1f s, read back in %.1f s\n",
        qPrintable(format.name), int(runs.size()), items, qPrintable(counts.join(QStringLiteral(", "))),
        mboxMessages ? qPrintable(QStringLiteral(" (%1 messages in the mbox files)").arg(mboxMessages)) : "",
        double(exported) / 1000, double(timer.elapsed() - exported) / 1000);
    EXPECT_GT(outputs, 0);
    if (!skip.isEmpty())
        GTEST_SKIP() << "read by our reader only: " << skip.toStdString();
}

// The mail formats once as they run by default and once with -OneFormat,
// which keeps contacts and calendar items in the format, when the program
// has that key.
std::vector<TVariant> MailVariants()
{
    if (Offers(QStringLiteral("-OneFormat")))
        return {TVariant::Default, TVariant::OneFormat};
    return {TVariant::Default};
}

bool HasPythonModule(const char* module)
{
    return Run(Python, {QStringLiteral("-c"), QStringLiteral("import ") + QLatin1String(module)}).exitCode == 0;
}

} // namespace

TEST(RoundTrip, EmlReadByPythonEmail)
{
    RoundTrip({QStringLiteral("eml"), true}, MailVariants());
}

TEST(RoundTrip, MsgReadByMsgReaderAndOurReader)
{
    RoundTrip({QStringLiteral("msg"), false}, {TVariant::Default});
}

TEST(RoundTrip, MBoxReadByPythonMailbox)
{
    RoundTrip({QStringLiteral("mbox"), true}, MailVariants());
}

TEST(RoundTrip, HtmlReadByPythonHtmlParser)
{
    RoundTrip({QStringLiteral("html"), true}, MailVariants());
}

TEST(RoundTrip, XhtmlReadByPythonXmlEtree)
{
    if (!Offers(QStringLiteral("xhtml")))
        GTEST_SKIP() << "this build has no -format xhtml";
    RoundTrip({QStringLiteral("xhtml"), true}, MailVariants());
}

TEST(RoundTrip, TxtReadByItsSubjectLine)
{
    RoundTrip({QStringLiteral("txt"), true}, MailVariants());
}

TEST(RoundTrip, VCardReadByPythonVobject)
{
    if (!HasPythonModule("vobject"))
        GTEST_SKIP() << "python3-vobject is not installed (scripts/install-deps installs it)";
    RoundTrip({QStringLiteral("vcf"), false}, {TVariant::Default});
}

TEST(RoundTrip, ICalendarReadByPythonIcalendar)
{
    if (!HasPythonModule("icalendar"))
        GTEST_SKIP() << "python3-icalendar is not installed (scripts/install-deps installs it)";
    RoundTrip({QStringLiteral("ics"), false}, {TVariant::Default});
}

// The window program prints each page off screen: no display needed.
TEST(RoundTrip, PdfReadByPdftotext)
{
    if (QStandardPaths::findExecutable(QStringLiteral("pdftotext")).isEmpty())
        GTEST_SKIP() << "pdftotext (poppler-utils) is not installed";
    RoundTrip({QStringLiteral("pdf"), true}, MailVariants());
}
