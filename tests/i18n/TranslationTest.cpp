// The translation template holds the program's texts, and the texts really
// go through the translator: a small catalogue made here changes them.

#include "TestUtil.h"
#include "app/ExportDialog.h"
#include "app/MailBrowseFrame.h"
#include "app/MailInfoFrame.h"
#include "app/MailListModel.h"
#include "app/PSTMainForm.h"
#include "core/CommandLine.h"
#include "mail/FileMailMsg.h"
#include "tasks/MailProperties.h"

#include <QCoreApplication>
#include <QFile>
#include <QHash>
#include <QLineEdit>
#include <QProcess>
#include <QSet>
#include <QTemporaryDir>
#include <QTranslator>
#include <QXmlStreamReader>
#include <gtest/gtest.h>

using namespace tessaly;

namespace {

struct TTemplate {
    QHash<QString, QSet<QString>> sources; // context -> source texts
    QStringList translated;                // sources whose translation has text
    QString error;
};

TTemplate ReadTemplate(const QString& fileName)
{
    TTemplate result;
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly)) {
        result.error = file.errorString();
        return result;
    }
    QXmlStreamReader xml(&file);
    QString context, source;
    while (!xml.atEnd()) {
        if (xml.readNext() != QXmlStreamReader::StartElement)
            continue;
        if (xml.name() == QLatin1String("name")) {
            context = xml.readElementText();
        } else if (xml.name() == QLatin1String("source")) {
            source = xml.readElementText();
            result.sources[context].insert(source);
        } else if (xml.name() == QLatin1String("translation")) {
            if (!xml.readElementText(QXmlStreamReader::IncludeChildElements).isEmpty())
                result.translated << source;
        }
    }
    if (xml.hasError())
        result.error = QStringLiteral("%1 (line %2)").arg(xml.errorString()).arg(xml.lineNumber());
    return result;
}

// Runs a Qt translation tool; its output when it fails.
QString RunTool(const QString& program, const QStringList& args)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, args);
    if (!process.waitForFinished(120000))
        return program + QStringLiteral(" did not finish: ") + process.errorString();
    const QString output = QString::fromLocal8Bit(process.readAll());
    return process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0 ? QString() : output;
}

// A text of the program, with the context it is translated in.
struct TText {
    const char* context;
    const char* source;
};

// Texts from every layer: the window, the preview, the rendered page, the
// command line, the data file's reasons, key descriptions kept in tables.
const TText ChosenTexts[] = {
    {"TPSTTree", "Error open %1"},
    {"TMailMainForm", "Next pane"},
    {"TPSTMainForm", "Open Outlook data file"},
    {"TMessageForm", "Could not read %1%2. Check that it is a .msg, .eml or .vcf file."},
    {"TMailBrowseFrame", "Search..."},
    {"TMailBrowseFrame", "Sorting…"},
    {"TMailListModel", "Received"},
    {"TMailInfoFrame", "Save attach as"},
    {"TMailInfoFrame", "Find in message..."},
    {"TMailInfoFrame", "Sent:"},
    {"TMailInfoFrame", "<No mail to show>"},
    {"TExportDialog", "Export messages"},
    {"TPSTSearchDialog", "Search Outlook data files"},
    {"TMailMsgHTML", "Subject"},
    {"TMailMsgHTML", "Business phone"},
    {"TMailProperties", "Show the sender"},
    {"TCommandLine", "Error in command line"},
    {"TCommandLine", "Command line:"},
    {"TPSTFile", "The file is empty."},
    {"TMailTask", "Can not save the attachment %1: %2"},
    {"CommandLineExport", "%1 messages: %2 written, %3 skipped by the filter, %4 failed; in %5"},
    {"StartUp", "tessaly: cannot start %1: %2"},
};

void ExpectTemplateHolds(const TTemplate& ts)
{
    ASSERT_TRUE(ts.error.isEmpty()) << ts.error.toStdString();
    for (const TText& text : ChosenTexts)
        EXPECT_TRUE(ts.sources.value(QLatin1String(text.context)).contains(QString::fromUtf8(text.source)))
            << text.context << ": " << text.source;
    EXPECT_TRUE(ts.translated.isEmpty()) << ts.translated.join(QLatin1Char('\n')).toStdString();
}

// Installs a translator for the life of the object.
class TInstalledTranslator {
public:
    explicit TInstalledTranslator(const QString& qmFile)
        : m_loaded(m_translator.load(qmFile) && QCoreApplication::installTranslator(&m_translator))
    {
    }
    ~TInstalledTranslator() { QCoreApplication::removeTranslator(&m_translator); }
    bool Loaded() const { return m_loaded; }

private:
    QTranslator m_translator;
    bool m_loaded;
};

} // namespace

TEST(TranslationTemplate, LupdateFindsTheProgramsTextsAndTranslatesNone)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString ts = dir.filePath(QStringLiteral("fresh.ts"));
    // The same sources and options as the build's update_translations target.
    const QString failure = RunTool(QStringLiteral(TESSALY_LUPDATE),
        {QStringLiteral("@" TESSALY_LUPDATE_SOURCES), QStringLiteral("-no-obsolete"), QStringLiteral("-locations"),
            QStringLiteral("none"), QStringLiteral("-ts"), ts});
    ASSERT_TRUE(failure.isEmpty()) << failure.toStdString();
    const TTemplate fresh = ReadTemplate(ts);
    ExpectTemplateHolds(fresh);
    // Data stays data: settings keys, schemes and markup are not texts.
    for (const auto& sources : fresh.sources)
        for (const char* data : {"LastProcessedNumber", "tessaly-body", "<h1>", "pst", "KeepFolders"})
            EXPECT_FALSE(sources.contains(QLatin1String(data))) << data;
}

TEST(TranslationTemplate, CommittedTemplateHoldsTheTextsUntranslated)
{
    ExpectTemplateHolds(ReadTemplate(QStringLiteral(TESSALY_TEMPLATE)));
}

TEST(Translation, ACatalogueChangesTheWindowThePageAndTheCommandLine)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString ts = dir.filePath(QStringLiteral("tessaly_de.ts"));
    const QString qm = dir.filePath(QStringLiteral("tessaly_de.qm"));
    {
        QFile file(ts);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(R"(<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de">
<context><name>TExportDialog</name>
  <message><source>Export messages</source><translation>Nachrichten exportieren</translation></message>
</context>
<context><name>TMailMsgHTML</name>
  <message><source>Subject</source><translation>Betreff</translation></message>
</context>
<context><name>TMailInfoFrame</name>
  <message><source>Sent:</source><translation>Gesendet:</translation></message>
  <message><source>&lt;No mail to show&gt;</source><translation>&lt;Keine Nachricht&gt;</translation></message>
</context>
<context><name>TCommandLine</name>
  <message><source>Error in command line</source><translation>Fehler in der Befehlszeile</translation></message>
</context>
<context><name>TMailBrowseFrame</name>
  <message><source>Search...</source><translation>Suchen...</translation></message>
</context>
<context><name>TMailListModel</name>
  <message><source>Received</source><translation>Empfangen</translation></message>
</context>
<context><name>TPSTMainForm</name>
  <message><source>Greek (1253)</source><translation>Griechisch (1253)</translation></message>
</context>
</TS>
)");
    }
    const QString failure = RunTool(QStringLiteral(TESSALY_LRELEASE), {ts, QStringLiteral("-qm"), qm});
    ASSERT_TRUE(failure.isEmpty()) << failure.toStdString();

    const auto message = mail::TFileMailMsgRequest(test::TestData(QStringLiteral("eml/attachment_emails__attachment_pdf.eml"))).Message();
    ASSERT_TRUE(message);
    const QString subjectRow = QStringLiteral("<b>Subject: </b></td><td>");
    tasks::TMailProperties properties;
    // English without the catalogue; the page is made in both runs alike.
    ASSERT_TRUE(tasks::StandaloneHtmlPage(*message).contains(subjectRow));
    {
        TInstalledTranslator german(qm);
        ASSERT_TRUE(german.Loaded());
        const QString page = tasks::StandaloneHtmlPage(*message);
        EXPECT_TRUE(page.contains(QStringLiteral("<b>Betreff: </b></td><td>"))) << page.toStdString();
        EXPECT_FALSE(page.contains(subjectRow));
        const QString header = app::HeaderBlockHtml(*message);
        EXPECT_TRUE(header.contains(QStringLiteral(">Gesendet: </td>"))) << header.toStdString();
        EXPECT_TRUE(app::EmptyViewHtml().endsWith(QStringLiteral("&lt;Keine Nachricht&gt;")));
        app::TExportDialog dialog(properties, message, 3);
        EXPECT_EQ(dialog.windowTitle(), QStringLiteral("Nachrichten exportieren"));
        EXPECT_EQ(core::TCommandLine::ErrorMessage(core::crCommandLine), QStringLiteral("Fehler in der Befehlszeile"));
        // A text the catalogue does not hold stays English.
        EXPECT_EQ(core::TCommandLine::ErrorMessage(core::crNoSource), QStringLiteral("No source or destination"));
        // The message list and the window's file languages.
        EXPECT_EQ(app::TPSTBrowseFrame().SearchBox()->placeholderText(), QStringLiteral("Suchen..."));
        EXPECT_EQ(app::TMailListModel::ColumnCaptions(app::lkMail).value(3), QStringLiteral("Empfangen"));
        // The page's "Subject" is translated in its own context, not the list's.
        EXPECT_EQ(app::TMailListModel::ColumnCaptions(app::lkMail).value(2), QStringLiteral("Subject"));
        EXPECT_TRUE(app::TPSTMainForm::FileLanguages().contains(qMakePair(1253, QStringLiteral("Griechisch (1253)"))));
    }
    // Removed, the program speaks English again, byte for byte.
    EXPECT_TRUE(tasks::StandaloneHtmlPage(*message).contains(subjectRow));
    EXPECT_TRUE(app::HeaderBlockHtml(*message).contains(QStringLiteral("<td class=\"caption\">Sent: </td>")));
    EXPECT_EQ(app::EmptyViewHtml(), QStringLiteral("<font face=Tahoma color=lightgray size=22>&lt;No mail to show&gt;"));
    EXPECT_EQ(app::TExportDialog(properties, message, 3).windowTitle(), QStringLiteral("Export messages"));
    EXPECT_EQ(app::TPSTBrowseFrame().SearchBox()->placeholderText(), QStringLiteral("Search..."));
    EXPECT_EQ(app::TMailListModel::ColumnCaptions(app::lkMail).value(3), QStringLiteral("Received"));
}
