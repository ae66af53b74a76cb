#include "tasks/MailProperties.h"

#include "../mail/MailTestObjects.h"
#include "TasksTestUtil.h"
#include "core/SettingsStore.h"
#include "tasks/CustomTask.h"
#include "tasks/MailTemplate.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace tessaly;
using namespace tessaly::tasks;
using tessaly::test::TTestAttach;
using tessaly::test::TTestAttachList;
using tessaly::test::TTestMessage;

namespace {

std::shared_ptr<TTestMessage> Message(const QString& subject)
{
    auto m = std::make_shared<TTestMessage>();
    m->subject = subject;
    m->sender = std::make_shared<mail::TMailRecipient>(QStringLiteral("Ann Lee"), QStringLiteral("ann@example.com"));
    m->recipients[mail::mrtTo] = test::Recipients({{"Bob", "bob@example.com"}});
    m->dates[mail::mdClientSubmit] = core::QDateTimeToDateTime(QDateTime(QDate(2024, 3, 5), QTime(9, 30)));
    m->text = QStringLiteral("Dear Bob,\n\nthe figures are attached.");
    return m;
}

class MailPropertiesTest : public test::TOptionsTest {
protected:};

} // namespace

TEST(MailTemplate, SubjectCleaning)
{
    const struct {
        QString subject, cleaned;
    } cases[] = {
        {"RE: FW: Offer", "Offer"},
        {"Re:Re:Re: x", "x"},
        {"Meeting at 10:30", "Meeting at 10:30"},
        {"RE:", "RE:"},
        {"  AW:  Antwort ", "Antwort"},
        {"Subject: hello", "Subject: hello"}, // the colon stands at position 8
        {"", ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(ClearSubject(c.subject), c.cleaned) << c.subject.toStdString();
}

TEST(MailTemplate, FileNameCleaner)
{
    const QString longBase(300, QLatin1Char('a'));
    const struct {
        QString name;
        int flags;
        QString cleaned;
    } cases[] = {
        {" a/b\\c:d*e?f\"g<h>i|j ", 0, "a_b_c_d_e_f_g_h_i_j"},
        {QStringLiteral("tab\there\u200e"), 0, "tab_here"},
        {"50% #1 & co+{x}~.txt", fncSharepoint, "50_ _1 _ co__x__.txt"},
        {"50% #1.txt", 0, "50% #1.txt"},
        {"wait.......", 0, "wait."},
        {longBase + ".pdf", fncLength, QString(251, QLatin1Char('a')) + ".pdf"},
        {longBase + ".pdf", fncLength | fncSharepoint, QString(123, QLatin1Char('a')) + ".pdf"},
        {longBase, 0, longBase},
    };
    for (const auto& c : cases)
        EXPECT_EQ(CleanFileName(c.name, c.flags), c.cleaned) << c.name.left(40).toStdString();
}

// File systems take 255 bytes per name: names are cut by their UTF-8 length,
// between characters, and the extension and any "(N)" or "~N" still fit.
TEST(MailTemplate, NamesFitIn255BytesOfUtf8)
{
    const QString cjk80 = QString(80, QChar(0x4E2D));              // 240 bytes
    const QString emoji = QString::fromUtf8("\xF0\x9F\x98\x80"); // 4 bytes, a surrogate pair
    const QString accented = QString::fromUtf8("e\xCC\x81");      // e and a combining acute
    const struct {
        QString name;
        int bytes;   // what the name is cut to
        int wanted;  // the UTF-8 length of the result
        QString ends;
    } cases[] = {
        {cjk80 + ".eml", 255, 244, ".eml"},
        {QString(100, QChar(0x4E2D)) + ".eml", 255, 253, QString(QChar(0x4E2D)) + ".eml"},
        {emoji.repeated(70) + ".eml", 255, 252, emoji + ".eml"},
        {QString(252, QLatin1Char('x')) + accented + ".txt", 255, 255, "x.txt"},
        {QString(250, QLatin1Char('x')) + accented + ".txt", 255, 254, "x.txt"}, // the accent stays with its letter
        {QString(300, QLatin1Char('a')), 255, 255, "a"},
        {QString(300, QChar(0x00E9)) + ".pdf", 200, 200, QString(QChar(0x00E9)) + ".pdf"},
    };
    for (const auto& c : cases) {
        const QString fitted = FitFileName(c.name, c.bytes);
        EXPECT_EQ(fitted.toUtf8().size(), c.wanted) << c.name.left(20).toStdString();
        EXPECT_EQ(Utf8Length(fitted), c.wanted);
        EXPECT_TRUE(fitted.endsWith(c.ends)) << fitted.right(10).toStdString();
        EXPECT_FALSE(fitted.toUtf8().contains("\xEF\xBF\xBD")) << "a character was cut in two";
    }
    // A name that fits is left alone; a lone surrogate counts as the three
    // bytes of its replacement.
    EXPECT_EQ(FitFileName(QStringLiteral("short.eml")), QStringLiteral("short.eml"));
    EXPECT_EQ(Utf8Length(QString(QChar(0xD800))), 3);

    // The names the export gives: the subject's, a renamed one, an
    // attachment's "~N" form.
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    TMailProperties options;
    options.SetFileNameTemplate(QStringLiteral("[subject]"));
    options.SetConvertType(mctEML);
    const auto message = std::make_shared<TTestMessage>();
    message->subject = QString(120, QChar(0x4E2D));
    const QString name = options.GetFileNameByTemplate(*message, 0);
    EXPECT_LE(name.toUtf8().size(), 255);
    EXPECT_TRUE(name.endsWith(QLatin1String(".eml")));
    const QString path = QDir(dir.path()).filePath(name);
    QFile first(path);
    ASSERT_TRUE(first.open(QIODevice::WriteOnly)) << "the file system refused a name of " << name.toUtf8().size() << " bytes";
    first.close();
    const QString renamed = TCustomTask::RenamedPath(path);
    EXPECT_LE(QFileInfo(renamed).fileName().toUtf8().size(), 255);
    EXPECT_TRUE(renamed.endsWith(QLatin1String(" (1).eml")));
    QFile second(renamed);
    EXPECT_TRUE(second.open(QIODevice::WriteOnly));
    const QString attached = SafeAttachName(QString(120, QChar(0x4E2D)) + QStringLiteral(".pdf"));
    EXPECT_LE(attached.toUtf8().size(), 200);
    EXPECT_TRUE(attached.endsWith(QLatin1String(".pdf")));
}

// A safe name has no dot or blank at either end and is not empty, also when
// the cut to 200 bytes leaves one there or leaves nothing; made safe again
// it stays the same.
TEST(MailTemplate, SafeNamesAfterTheCut)
{
    const struct {
        QString name;
        QString expected;
    } cases[] = {
        {QString(198, QLatin1Char('x')) + QStringLiteral("  yyyy"), QString(198, QLatin1Char('x'))},
        {QStringLiteral(". .x"), QStringLiteral("x")},
        {QStringLiteral("x. . "), QStringLiteral("x")},
        // One character of 601 bytes: nothing is left of it.
        {QLatin1Char('a') + QString(300, QChar(0x0301)), QStringLiteral("attachment")},
        {QStringLiteral("LPT1") + QLatin1Char('a') + QString(300, QChar(0x0301)), QStringLiteral("_LPT1")},
    };
    for (const auto& c : cases) {
        const QString safe = SafeAttachName(c.name);
        EXPECT_EQ(safe, c.expected) << c.name.toStdString();
        EXPECT_LE(safe.toUtf8().size(), 200);
        EXPECT_EQ(SafeAttachName(safe), safe) << c.name.toStdString();
    }
}

TEST(MailTemplate, MacroKinds)
{
    const auto macro = [](const QString& text) {
        TTemplateMacro m;
        const qsizetype colon = text.indexOf(QLatin1Char(':'));
        m.Name = colon < 0 ? text : text.left(colon);
        m.HasParameter = colon >= 0;
        m.Parameter = colon < 0 ? QString() : text.mid(colon + 1);
        return m;
    };
    EXPECT_EQ(NumberMacro(7, macro("n:4")), QStringLiteral("0007"));
    EXPECT_EQ(NumberMacro(123, macro("n:2")), QStringLiteral("123"));
    EXPECT_EQ(NumberMacro(5, macro("n:x")), QStringLiteral("5"));
    EXPECT_EQ(TextMacro(QStringLiteral("Quarterly report"), macro("subject:9")), QStringLiteral("Quarterly"));
    EXPECT_EQ(TextMacro(QStringLiteral("abc"), macro("subject:0")), QStringLiteral("abc"));
    const QDateTime when(QDate(2024, 3, 5), QTime(14, 7, 9));
    EXPECT_EQ(DateMacro(when, macro("date:yyyy-mm-dd hh.nn.ss")), QStringLiteral("2024-03-05 14.07.09"));
    EXPECT_EQ(DateMacro(when, macro("date:dd mmm yyyy")), QStringLiteral("05 Mar 2024"));
    EXPECT_EQ(DateMacro(QDateTime(), macro("date")), QString());

    const TMailTemplate parsed(QStringLiteral("[a]-[b:2]-x[unknown:z]"));
    EXPECT_EQ(parsed.Expand([](const TTemplateMacro& m) -> std::optional<QString> {
        if (m.Name == QLatin1String("unknown"))
            return std::nullopt;
        return m.Name + QString::number(m.Number());
    }),
        QStringLiteral("a0-b2-x[unknown:z]"));
    EXPECT_EQ(TMailTemplate(QStringLiteral("no [closing")).Expand([](const TTemplateMacro&) { return QStringLiteral("?"); }),
        QStringLiteral("no [closing"));
}

TEST_F(MailPropertiesTest, FileNamesFromTemplates)
{
    TMailProperties options;
    const auto message = Message(QStringLiteral("RE: Quarterly figures"));
    const struct {
        QString pattern;
        int index;
        QString name;
    } cases[] = {
        {"[nn]. [date] - [subject]", 6, "07. 3_5_24 - Quarterly figures.html"},
        {"[nn]", 122, "123.html"},
        {"[n:4]_[subject:9]", 6, "0007_Quarterly.html"},
        {"[date:yyyymmdd]_[sender.name]_[recipient]", 0, "20240305_Ann Lee_Bob _bob@example.com_.html"},
        {"[sender.email] [mail_index:3]", 4, "ann@example.com 004.html"},
        {"[subject] [page] [last page:2] [attach:5] [dest_index]", 0,
            "Quarterly figures [page] [last page=2] [attach=5] [dest_index].html"},
        {"[ifattach][subject]", 0, "Quarterly figures.html"},
        {"[body]", 0, "Dear Bob, the figures are attached..html"},
        {"[body:8]", 0, "Dear Bob.html"},
        {"[nothing]", 0, "[nothing].html"},
        {"  ", 0, ""},
    };
    for (const auto& c : cases) {
        options.SetFileNameTemplate(c.pattern);
        EXPECT_EQ(options.GetFileNameByTemplate(*message, c.index), c.name) << c.pattern.toStdString();
    }
    message->attaches = std::make_shared<TTestAttachList>(
        std::vector<std::shared_ptr<mail::IMailAttach>>{std::make_shared<TTestAttach>(QStringLiteral("a.pdf"))});
    options.SetFileNameTemplate(QStringLiteral("[ifattach] [subject]"));
    EXPECT_EQ(options.GetFileNameByTemplate(*message, 0), QStringLiteral("attach Quarterly figures.html"));

    options.UseFileNameTemplate = false;
    options.Destination = QStringLiteral("/out/All mail.html");
    EXPECT_EQ(options.GetFileNameByTemplate(*message, 0), QStringLiteral("All mail.html"));
}

TEST_F(MailPropertiesTest, LongSubjectsAndSharepointNames)
{
    TMailProperties options;
    options.SetFileNameTemplate(QStringLiteral("[subject]"));
    const auto message = Message(QString(300, QLatin1Char('s')));
    EXPECT_EQ(options.GetFileNameByTemplate(*message, 0), QString(250, QLatin1Char('s')) + QStringLiteral(".html"));
    options.FileNameOptions.Include(fnoSharepointCompatible);
    EXPECT_EQ(options.PrepareFileNameOptions(), 3);
    EXPECT_EQ(options.GetFileNameByTemplate(*message, 0), QString(123, QLatin1Char('s')) + QStringLiteral(".html"));
    message->subject = QStringLiteral("Offer #5 & more");
    EXPECT_EQ(options.GetFileNameByTemplate(*message, 0), QStringLiteral("Offer _5 _ more.html"));
    options.FileNameOptions.Exclude(fnoClearSubject);
    message->subject = QStringLiteral("RE: x");
    EXPECT_EQ(options.GetFileNameByTemplate(*message, 0), QStringLiteral("RE_ x.html"));
}

TEST_F(MailPropertiesTest, AttachmentNames)
{
    TMailProperties options;
    const TTestAttach attach(QStringLiteral("Report: Q1/2024.pdf"));
    EXPECT_EQ(options.GetAttachNameByTemplate(attach, QStringLiteral("01. mail.html"), 0), QStringLiteral("Report_ Q1_2024.pdf"));
    const struct {
        QString pattern;
        QString name;
    } cases[] = {
        {"[mail]_[attach]", "01. mail_Report_ Q1_2024.pdf"},
        {"[mail:2]-[attach:6]", "01-Report.pdf"},
        {"[attach_index:2]_", "03_Report_ Q1_2024.pdf"},
        {"[mail_index] [attach]", "3 Report_ Q1_2024.pdf"},
        {"[nothing]", "[nothing]Report_ Q1_2024.pdf"},
    };
    for (const auto& c : cases) {
        options.SetAttachNameTemplate(c.pattern);
        EXPECT_EQ(options.GetAttachNameByTemplate(attach, QStringLiteral("01. mail.html"), 3), c.name)
            << c.pattern.toStdString();
    }
    options.SetAttachNameTemplate(QString(300, QLatin1Char('x')) + QStringLiteral(".bin"));
    EXPECT_EQ(options.GetAttachNameByTemplate(attach, QStringLiteral("m.html"), 0), QString(251, QLatin1Char('x')) + QStringLiteral(".pdf"));
}

TEST_F(MailPropertiesTest, ConvertTypeSideEffects)
{
    const QString extensions[] = {"html", "pdf", "txt", "docx", "rtf", "xlsx", "tiff", "jpg", "emf", "eml", "msg",
        "html", "pst", "xps", "mbox", "vcf"};
    for (int type = mctHTML; type <= mctVCard; ++type) {
        TMailProperties options;
        options.SetConvertType(TMailConvertType(type));
        EXPECT_EQ(options.Extension(), extensions[type]) << type;
        const bool mailFormat = type == mctEML || type == mctMSG || type == mctPST || type == mctVCard;
        EXPECT_EQ(options.IsMailFormat(), mailFormat) << type;
    }
    TMailProperties options;
    EXPECT_EQ(options.Fields, (TMailFields{mitSender, mitRecipient, mitDate, mitSubject, mitBody}));
    options.SetConvertType(mctMBox);
    EXPECT_TRUE(options.CombineFiles);
    EXPECT_FALSE(options.UseFileNameTemplate);
    EXPECT_TRUE(options.Fields.Has(mitRFCHeaders));
    EXPECT_FALSE(options.Fields.Has(mitDateUTC));
    options.SetConvertType(mctHTML); // restores neither
    EXPECT_TRUE(options.CombineFiles);
    EXPECT_FALSE(options.UseFileNameTemplate);
    options.SetConvertType(mctTIFF);
    EXPECT_EQ(options.HTMLConvertType(), htTIFF);
    EXPECT_TRUE(options.SingleImage());
    options.SetConvertType(mctXPS);
    EXPECT_EQ(options.HTMLConvertType(), htPDF);
    EXPECT_TRUE(options.CommentInInches());
}

TEST_F(MailPropertiesTest, CommandLineViewsAndRunningNumbers)
{
    TMailProperties options;
    options.Counter = 40;
    options.SetCmdLastCounter(true);
    EXPECT_EQ(options.Counter, -1);
    EXPECT_TRUE(options.cmdLastCounter());
    options.SetCmdLastCounter(false);
    EXPECT_EQ(options.Counter, 1); // not back to 40

    options.SetCmdAttach(aotConvertMsg, false);
    options.SetCmdAttach(aotSeparateMsg, true);
    EXPECT_TRUE(options.cmdAttach(aotConvertMsg));
    options.SetCmdAttach(aotSeparateMsg, false);
    EXPECT_TRUE(options.cmdAttach(aotConvertMsg)); // left as it was
    options.SetCmdField(mitCC, true);
    EXPECT_TRUE(options.cmdField(mitCC));

    EXPECT_EQ(options.LastProcessedNumber(), 1);
    options.SetLastProcessedNumber(41);
    EXPECT_EQ(TMailProperties().LastProcessedNumber(), 41); // kept in the settings
    options.Counter = -1;
    EXPECT_EQ(options.RunningNumber(0), 42);
    options.Counter = 5;
    EXPECT_EQ(options.RunningNumber(2), 7);
}

TEST_F(MailPropertiesTest, StoredUnderTheirNamesAndLoadedBack)
{
    TMailProperties options;
    const QStringList names = options.StoredNames();
    EXPECT_EQ(names.first(), QStringLiteral("UseExternalCSS"));
    EXPECT_LT(names.indexOf(QStringLiteral("Fields")), names.indexOf(QStringLiteral("ConvertType")));
    EXPECT_LT(names.indexOf(QStringLiteral("FileNameTemplate")), names.indexOf(QStringLiteral("Counter")));
    EXPECT_FALSE(names.contains(QStringLiteral("CommentInInches"))); // derived, not stored

    options.SetConvertType(mctEML);
    options.Fields.Exclude(mitBCC);
    options.Attach.Include(aotSave);
    options.SetFileNameTemplate(QStringLiteral("[n:3] [subject]"));
    options.Counter = 12;
    options.Filter.SetCmd(QStringLiteral("subject=invoice,attach=include"));
    options.Paper().Width = 600;
    options.Layout.BreakPattern = QStringLiteral("<hr>");
    options.CheckFileMode = cfmRename;
    options.Destination = QStringLiteral("/out");
    core::TSettingsStore& store = core::TSettingsStore::Global();
    options.Save(store, QStringLiteral("Export"));

    TMailProperties loaded;
    loaded.Load(store, QStringLiteral("Export"));
    EXPECT_EQ(loaded.ConvertType(), mctEML);
    EXPECT_EQ(loaded.Extension(), QStringLiteral("eml"));
    EXPECT_EQ(loaded.Fields, options.Fields);
    EXPECT_EQ(loaded.Attach, options.Attach);
    EXPECT_EQ(loaded.FileNameTemplate(), QStringLiteral("[n:3] [subject]"));
    EXPECT_EQ(loaded.Counter, 12);
    EXPECT_EQ(loaded.Filter.Cmd(), QStringLiteral("subject=invoice,attach=include"));
    EXPECT_EQ(loaded.Paper().Width, 600);
    EXPECT_EQ(loaded.Layout.BreakPattern, QStringLiteral("<hr>"));
    EXPECT_EQ(loaded.CheckFileMode, cfmRename);
    EXPECT_EQ(loaded.Destination, QStringLiteral("/out"));
    // Nothing stored: the defaults stay.
    TMailProperties fresh;
    fresh.Load(store, QStringLiteral("Nothing"));
    EXPECT_EQ(fresh.FileNameTemplate(), QStringLiteral("[nn]. [date] - [subject]"));
    EXPECT_EQ(fresh.Title().CommentRight, QStringLiteral("Page [page]"));
    EXPECT_EQ(fresh.Title().CommentLeft, QStringLiteral("[date]"));
}

// The options of the other formats are kept with the rest; a vCard version
// that is neither 3 nor 4 is not taken.
TEST_F(MailPropertiesTest, FormatOptionsStoredAndLoadedBack)
{
    core::TSettingsStore& store = core::TSettingsStore::Global();
    TMailProperties options;
    options.RemotePictures = true;
    options.PicturesBeside = true;
    options.VCardVersion = 4;
    options.OneFormat = true;
    options.Save(store, QStringLiteral("Export"));
    TMailProperties loaded;
    loaded.Load(store, QStringLiteral("Export"));
    EXPECT_TRUE(loaded.RemotePictures);
    EXPECT_TRUE(loaded.PicturesBeside);
    EXPECT_EQ(loaded.VCardVersion, 4);
    EXPECT_TRUE(loaded.OneFormat);
    store.WriteValue(QStringLiteral("Export"), QStringLiteral("VCardVersion"), 7);
    TMailProperties odd;
    odd.Load(store, QStringLiteral("Export"));
    EXPECT_EQ(odd.VCardVersion, 3);
}

// The papers of PDF output: a4 first, each portrait, as the command line
// and the export dialog offer them.
TEST(PaperSizes, NamedPortraitA4First)
{
    const auto& papers = PaperSizes();
    QStringList names;
    for (const auto& [name, size] : papers) {
        names << name;
        EXPECT_LT(size.width(), size.height()) << name.toStdString();
    }
    EXPECT_EQ(names, (QStringList{QStringLiteral("a4"), QStringLiteral("a3"), QStringLiteral("a5"), QStringLiteral("letter"), QStringLiteral("legal")}));
    EXPECT_EQ(papers.front().second, QSizeF(TPaperProperties().Width, TPaperProperties().Height)); // the default paper
    EXPECT_EQ(papers[3].second, QSizeF(816, 1056)); // 8.5 x 11 inches at 96 dpi
}

TEST_F(MailPropertiesTest, CommandLineKeys)
{
    core::TCommandLine commandLine;
    for (const auto& key : TMailProperties::CommandKeys())
        commandLine.DefineKey(key);
    commandLine.Parse({QStringLiteral("-Sender=false"), QStringLiteral("--cc"), QStringLiteral("-AttachSeparateMsg"),
                          QStringLiteral("-LastCounter"), QStringLiteral("-ExternalCSS"), QStringLiteral("look.css"),
                          QStringLiteral("-FileSharepoint"), QStringLiteral("-HTMLEmbedImages")},
        QStringLiteral("/work"));
    TMailProperties options;
    options.SetCmdAttach(aotConvertMsg, false);
    options.ApplyCommandLine(commandLine);
    EXPECT_FALSE(options.cmdField(mitSender));
    EXPECT_TRUE(options.cmdField(mitCC));
    EXPECT_TRUE(options.cmdAttach(aotSeparateMsg));
    EXPECT_TRUE(options.cmdAttach(aotConvertMsg));
    EXPECT_TRUE(options.cmdLastCounter());
    EXPECT_TRUE(options.UseExternalCSS);
    EXPECT_EQ(options.ExternalCSSFile, QStringLiteral("/work/look.css"));
    EXPECT_EQ(options.cmdExternalCSS(), QStringLiteral("/work/look.css"));
    EXPECT_EQ(options.PrepareFileNameOptions(), 3);
    EXPECT_TRUE(options.cmdHTMLEmbedImages());
    EXPECT_TRUE(options.cmdField(mitDate)); // not named: unchanged
    EXPECT_TRUE(commandLine.HelpText().contains(QStringLiteral("-AttachSave")));
}

TEST_F(MailPropertiesTest, WizardPages)
{
    const struct {
        TMailConvertType type;
        int sources;
        bool combine;
        bool file, folder, css, comment, docCombine;
    } cases[] = {
        {mctHTML, 1, false, true, false, true, false, false},
        {mctHTML, 3, false, false, true, true, false, false},
        {mctPDF, 2, false, false, true, true, true, false},
        {mctEML, 1, false, true, false, false, false, false},
        {mctPST, 1, false, false, false, false, false, false},
        {mctDOC, 2, true, false, true, true, false, true},
        {mctTXT, 2, true, false, true, false, false, false},
    };
    for (const auto& c : cases) {
        TMailProperties options;
        options.SetConvertType(c.type);
        options.SourceFileCount = c.sources;
        options.CombineFiles = c.combine;
        SCOPED_TRACE(int(c.type));
        EXPECT_EQ(options.wizardShowFile(), c.file);
        EXPECT_EQ(options.wizardSelectFolder(), c.folder);
        EXPECT_EQ(options.wizardShowCSS(), c.css);
        EXPECT_EQ(options.wizardShowComment(), c.comment);
        EXPECT_EQ(options.wizardShowDocCombineOptions(), c.docCombine);
        EXPECT_EQ(options.wizardSelectPST(), c.type == mctPST);
    }
}

TEST_F(MailPropertiesTest, DestinationCompletion)
{
    QTemporaryDir dir;
    TMailProperties pst;
    pst.SetConvertType(mctPST);
    pst.Destination = dir.path() + QLatin1Char('/');
    ASSERT_TRUE(pst.InitDestination(nullptr, {}));
    EXPECT_EQ(pst.Destination, dir.filePath(QStringLiteral("Outlook.pst")));
    TMailProperties mbox;
    mbox.SetConvertType(mctMBox);
    mbox.Destination = dir.filePath(QStringLiteral("mine.mbox"));
    ASSERT_TRUE(mbox.InitDestination(nullptr, {}));
    EXPECT_EQ(mbox.Destination, dir.filePath(QStringLiteral("mine.mbox")));
    mbox.Destination = dir.path();
    ASSERT_TRUE(mbox.InitDestination(nullptr, {}));
    EXPECT_EQ(mbox.Destination, dir.filePath(QStringLiteral("EMails.mbox")));

    TMailProperties single;
    single.SourceFileCount = 1;
    single.Destination = dir.path();
    single.SetFileNameTemplate(QStringLiteral("[subject]"));
    const auto message = Message(QStringLiteral("RE: Plans"));
    ASSERT_TRUE(single.InitDestination([&] { return message; }, QStringLiteral("/in/a.msg")));
    EXPECT_EQ(single.Destination, dir.filePath(QStringLiteral("Plans.html")));
    single.Destination = dir.path();
    single.SetFileNameTemplate(QStringLiteral(" "));
    ASSERT_TRUE(single.InitDestination([&] { return message; }, QStringLiteral("/in/a.msg")));
    EXPECT_EQ(single.Destination, dir.filePath(QStringLiteral("a.html")));
    EXPECT_FALSE(single.InitDestination([] { return std::shared_ptr<mail::IMailMessage>(); }, {}));

    EXPECT_EQ(single.DestinationFileIndex(), 0);
    single.NextDestinationFile();
    EXPECT_EQ(single.DestinationFileIndex(), 1);
}

TEST_F(MailPropertiesTest, DefaultStyleSheetAndLogTemplate)
{
    TMailProperties options;
    options.Paper().Width = 612.6;
    const QString css = options.GetDefaultCSS();
    EXPECT_TRUE(css.contains(QStringLiteral("max-width: 613;")));
    EXPECT_FALSE(css.contains(QStringLiteral("[pagewidth]")));

    TMailConverterOptions converter;
    converter.LogTemplate = QStringLiteral("[date] [file]");
    TMailConverterOptions::SetInstance(&converter);
    EXPECT_EQ(TMailProperties().LogTemplate, QStringLiteral("[date] [file]"));
    TMailConverterOptions::SetInstance(nullptr);
    EXPECT_EQ(TMailProperties().LogTemplate, QString());

    TMailCombineList combined;
    combined.Add(QStringLiteral("a.html"));
    combined.Add(QStringLiteral("b.html"));
    combined.Remove(QStringLiteral("a.html"));
    EXPECT_EQ(combined.Names(), QStringList{QStringLiteral("b.html")});
}
