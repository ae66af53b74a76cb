#include "tasks/MailProperties.h"

#include "../mail/MailTestObjects.h"
#include "core/SettingsStore.h"

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

class MailPropertiesTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        core::TSettingsStore::SetGlobal(std::make_unique<core::TSettingsStore>(m_dir.filePath(QStringLiteral("t.ini"))));
        QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    }
    void TearDown() override
    {
        core::TSettingsStore::SetGlobal(nullptr);
        QLocale::setDefault(m_locale);
    }
    QTemporaryDir m_dir;
    QLocale m_locale;
};

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
        {longBase + ".pdf", fncLength, QString(255, QLatin1Char('a')) + ".pdf"},
        {longBase + ".pdf", fncLength | fncSharepoint, QString(123, QLatin1Char('a')) + ".pdf"},
        {longBase, 0, longBase},
    };
    for (const auto& c : cases)
        EXPECT_EQ(CleanFileName(c.name, c.flags), c.cleaned) << c.name.left(40).toStdString();
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
    EXPECT_EQ(options.GetAttachNameByTemplate(attach, QStringLiteral("m.html"), 0), QString(250, QLatin1Char('x')) + QStringLiteral(".pdf"));
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
