#include "TestUtil.h"
#include "core/DateTime.h"
#include "app/MailInfoFrame.h"
#include "mail/FileMailMsg.h"
#include "mail/MailMsgHTML.h"
#include "mail/MailTestObjects.h"
#include "tasks/MailTemplate.h"

#include <QCoreApplication>
#include <QDir>
#include <QMenu>
#include <QTcpSocket>
#include <QElapsedTimer>
#include <QFile>
#include <QPlainTextEdit>
#include <QProcess>
#include <QScrollBar>
#include <QTabWidget>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTextBrowser>
#include <QBuffer>
#include <QImage>
#include <QWebEnginePage>
#include <QWebEngineScript>
#include <QWebEngineView>
#include <gtest/gtest.h>

using namespace tessaly;
using namespace tessaly::app;
using namespace tessaly::test;

namespace {

class TSizedAttach : public TTestAttach, public mail::IMailAttach2 {
public:
    TSizedAttach(QString name, qint32 size, std::shared_ptr<mail::IMailMessage> inner = nullptr)
        : TTestAttach(std::move(name)), m_size(size), m_inner(std::move(inner))
    {
    }
    qint32 Size() const override { return m_size; }
    std::shared_ptr<mail::IMailMessage> AsMailMessage() const override { return m_inner; }

private:
    qint32 m_size;
    std::shared_ptr<mail::IMailMessage> m_inner;
};

// A picture the body shows by its content id.
class TPictureAttach : public TTestAttach {
public:
    TPictureAttach(QString name, QString id) : TTestAttach(std::move(name)), m_id(std::move(id))
    {
        QImage image(5, 4, QImage::Format_RGB32);
        image.fill(Qt::blue);
        QBuffer buffer(&m_png);
        buffer.open(QIODevice::WriteOnly);
        image.save(&buffer, "PNG");
    }
    std::unique_ptr<QIODevice> Content() const override
    {
        auto buffer = std::make_unique<QBuffer>();
        buffer->setData(m_png);
        buffer->open(QIODevice::ReadOnly);
        return buffer;
    }
    QString ContentID() const override { return m_id; }
    QString ContentType() const override { return QStringLiteral("image/png"); }

private:
    QString m_id;
    QByteArray m_png;
};

std::shared_ptr<TTestMessage> Message(std::vector<std::shared_ptr<mail::IMailAttach>> attaches = {})
{
    auto message = std::make_shared<TTestMessage>();
    message->subject = QStringLiteral("Q1 <results> & plans");
    message->sender = std::make_shared<mail::TMailRecipient>(QStringLiteral("Ann & Co"), QStringLiteral("ann@x.org"));
    message->recipients[mail::mrtTo] = Recipients({{QStringLiteral("<Bob>"), QStringLiteral("bob@x.org")}});
    message->attaches = std::make_shared<TTestAttachList>(std::move(attaches));
    message->html = QStringLiteral("<p>Body text</p>");
    return message;
}

void WaitFor(const std::function<bool()>& done, int ms)
{
    QElapsedTimer timer;
    timer.start();
    while (!done() && timer.elapsed() < ms)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
}

} // namespace

TEST(PreviewPane, EveryRecipientOnALineOfItsOwn)
{
    auto message = Message();
    message->recipients[mail::mrtTo] = Recipients({{QStringLiteral("hans_kast"), QString()}, {QStringLiteral("michelle.lokay"), QString()}});
    message->recipients[mail::mrtCC] = Recipients({{QStringLiteral("kim.ward"), QString()}});
    // The block keeps its own markup; the view shows the breaks.
    EXPECT_TRUE(HeaderBlockHtml(*message).contains(QStringLiteral("hans_kast</br>michelle.lokay</br>kim.ward</br>")));
    TMailInfoFrame frame;
    frame.resize(600, 500);
    frame.Navigate(message);
    const QStringList lines = frame.HeaderView()->toPlainText().split(QLatin1Char('\n'));
    for (const QString& name : {QStringLiteral("hans_kast"), QStringLiteral("michelle.lokay"), QStringLiteral("kim.ward")}) {
        const auto line = std::find_if(lines.begin(), lines.end(), [&](const QString& l) { return l.contains(name); });
        ASSERT_NE(line, lines.end()) << name.toStdString();
        EXPECT_EQ(line->trimmed(), name) << line->toStdString();
    }
}

// A long list of recipients scrolls in the header block, which takes two
// fifths of the pane at most: the body keeps the rest. A short block is
// shown whole, without a scroll bar.
TEST(PreviewPane, ManyRecipientsLeaveTheBodyItsPlace)
{
    auto crowd = Message();
    auto list = std::make_shared<mail::TMailRecipientArray>();
    for (int i = 0; i < 80; ++i)
        list->Add(std::make_shared<mail::TMailRecipient>(QStringLiteral("Colleague %1").arg(i), QStringLiteral("c%1@x.org").arg(i)));
    crowd->recipients[mail::mrtTo] = list;
    TMailInfoFrame frame;
    frame.resize(600, 700);
    frame.show();
    frame.Navigate(crowd);
    QCoreApplication::processEvents();
    EXPECT_LE(frame.HeaderView()->height(), 700 * 2 / 5);
    EXPECT_GE(frame.BodyView()->height(), 700 / 3);
    EXPECT_EQ(frame.HeaderView()->verticalScrollBarPolicy(), Qt::ScrollBarAsNeeded);
    EXPECT_GT(frame.HeaderView()->verticalScrollBar()->maximum(), 0);

    frame.Navigate(Message());
    QCoreApplication::processEvents();
    EXPECT_EQ(frame.HeaderView()->verticalScrollBarPolicy(), Qt::ScrollBarAlwaysOff);
    EXPECT_GE(frame.HeaderView()->height(), int(frame.HeaderView()->document()->size().height()));
}

TEST(PreviewPane, HeaderBlock)
{
    const auto message = Message({std::make_shared<TSizedAttach>(QStringLiteral("a.pdf"), 2048),
        std::make_shared<TSizedAttach>(QStringLiteral("b&c.txt"), 0), std::make_shared<TSizedAttach>(QStringLiteral("d.doc"), 10)});
    const QString html = HeaderBlockHtml(*message);
    EXPECT_TRUE(html.contains(QStringLiteral("<h1>Q1 &lt;results&gt; &amp; plans</h1>")));
    EXPECT_TRUE(html.contains(QStringLiteral("<h2>Ann &amp; Co &lt;ann@x.org&gt;</h2>")));
    EXPECT_TRUE(html.contains(QStringLiteral("<tr><td class=\"caption\">Sent: </td><td></td></tr>"))); // no date
    EXPECT_TRUE(html.contains(QStringLiteral("&lt;Bob&gt; &lt;bob@x.org&gt;</br></td></tr></table>")));
    // Three attachments: two rows, the second left open after its one cell.
    const QString table = html.mid(html.indexOf(QStringLiteral("<table class=\"attach\" width=\"100%\">")));
    EXPECT_EQ(table.count(QStringLiteral("<tr>")), 2);
    EXPECT_EQ(table.count(QStringLiteral("</tr>")), 1);
    EXPECT_TRUE(table.endsWith(QStringLiteral("<tr><td class=\"attach\"><a href=2>d.doc (10 bytes)</a></td></table>")));
    EXPECT_TRUE(table.contains(QStringLiteral("<a href=1>b&amp;c.txt</a>"))); // size unknown
    EXPECT_TRUE(html.startsWith(QStringLiteral("<style>body, h1, h2 { font-family: Calibri, Sans-serif; }")));

    TMailInfoFrame frame;
    frame.resize(600, 500);
    frame.Navigate(message);
    EXPECT_FALSE(frame.ShowsEmptyView());
    EXPECT_TRUE(frame.HeaderView()->toPlainText().contains(QStringLiteral("Q1 <results> & plans")));
    EXPECT_EQ(frame.Tabs()->tabText(0), QStringLiteral("HTML"));
    EXPECT_EQ(frame.Tabs()->tabText(1), QStringLiteral("Text"));
    EXPECT_EQ(frame.Tabs()->tabText(2), QStringLiteral("Headers"));
    EXPECT_EQ(frame.Tabs()->tabPosition(), QTabWidget::South);
    EXPECT_EQ(frame.TextView()->toPlainText().trimmed(), QStringLiteral("Body text"));
    frame.Navigate(nullptr);
    EXPECT_TRUE(frame.ShowsEmptyView());
    EXPECT_TRUE(frame.EmptyView()->toPlainText().contains(QStringLiteral("<No mail to show>")));
    EXPECT_EQ(EmptyViewHtml(), QStringLiteral("<font face=Tahoma color=lightgray size=22>&lt;No mail to show&gt;"));
}

namespace {

// A contact as a data file gives it: no subject, its fields by number.
class TTestContact : public TTestMessage, public mail::IMailContact {
public:
    std::map<int, QVariant> fields;
    QVariant GetField(int field) const override
    {
        const auto it = fields.find(field);
        return it == fields.end() ? QVariant() : it->second;
    }
};

class TTestMeeting : public TTestMessage, public mail::IMailMeeting {
public:
    mail::TDateTime start = 0, end = 0;
    QString location;
    mail::TDateTime AppoitmentStart() const override { return start; }
    mail::TDateTime AppoitmentEnd() const override { return end; }
    QString Location() const override { return location; }
};

} // namespace

// A contact: titled by its name, without sender, "Sent:" or "To:"; its card
// above the body.
TEST(PreviewPane, ContactShowsItsCard)
{
    auto contact = std::make_shared<TTestContact>();
    contact->fields = {{mail::mcfFullName, QStringLiteral("Ann <Example>")}, {mail::mcfCompany, QStringLiteral("Halvorne")},
        {mail::mcfMobilePhone, QStringLiteral("+41 79 555 03 03")}};
    const QString header = HeaderBlockHtml(*contact);
    EXPECT_TRUE(header.contains(QStringLiteral("<h1>Ann &lt;Example&gt;</h1>"))) << header.toStdString();
    for (const char* absent : {"<h2>", "Sent: ", "To: "})
        EXPECT_FALSE(header.contains(QLatin1String(absent))) << absent;
    const QString body = PreviewBodyHtml(*contact);
    EXPECT_TRUE(body.contains(QStringLiteral("class=\"contact_card\""))) << body.toStdString();
    EXPECT_TRUE(body.contains(QStringLiteral("<b>Name: </b></td><td id=\"name_text\">Ann &lt;Example&gt;</td>")));
    EXPECT_TRUE(body.contains(QStringLiteral("<b>Company: </b></td><td id=\"company_text\">Halvorne</td>")));
    EXPECT_TRUE(body.contains(QStringLiteral("<b>Mobile phone: </b></td><td id=\"mobilephone_text\">+41 79 555 03 03</td>")));

    TMailInfoFrame frame;
    frame.resize(600, 500);
    frame.Navigate(contact);
    EXPECT_FALSE(frame.ShowsEmptyView());
    EXPECT_EQ(frame.HeaderView()->toPlainText().trimmed(), QStringLiteral("Ann <Example>"));
}

// A meeting: its header block as a message's, and above the body who meets
// when and where.
TEST(PreviewPane, MeetingShowsWhenAndWhere)
{
    auto meeting = std::make_shared<TTestMeeting>();
    meeting->subject = QStringLiteral("Planning");
    meeting->sender = std::make_shared<mail::TMailRecipient>(QStringLiteral("Olga"), QStringLiteral("olga@x.org"));
    meeting->recipients[mail::mrtTo] = Recipients({{QStringLiteral("Rita"), QStringLiteral("rita@x.org")}});
    meeting->start = core::QDateTimeToDateTime(QDateTime(QDate(2025, 5, 6), QTime(9, 0)));
    meeting->end = core::QDateTimeToDateTime(QDateTime(QDate(2025, 5, 6), QTime(10, 30)));
    meeting->location = QStringLiteral("Room 7");
    meeting->html = QStringLiteral("<p>Agenda</p>");
    const QString header = HeaderBlockHtml(*meeting);
    EXPECT_TRUE(header.contains(QStringLiteral("<h2>Olga &lt;olga@x.org&gt;</h2>")));
    EXPECT_TRUE(header.contains(QStringLiteral("Sent: ")));
    const QString body = PreviewBodyHtml(*meeting);
    EXPECT_TRUE(body.contains(QStringLiteral("<b>Location: </b></td><td>Room 7</td>"))) << body.toStdString();
    EXPECT_TRUE(body.contains(QStringLiteral("<b>When: </b></td><td>") + core::FormatDateTime(meeting->start)
        + QStringLiteral(" - ") + core::FormatDateTime(meeting->end) + QStringLiteral("</td>")));
    EXPECT_TRUE(body.contains(QStringLiteral("<b>Required: </b>")));
    EXPECT_TRUE(body.contains(QStringLiteral(">Rita &lt;rita@x.org&gt;</a>")));
    EXPECT_FALSE(body.contains(QStringLiteral("<b>Subject: </b>")));
    EXPECT_LT(body.indexOf(QStringLiteral("<b>When: </b>")), body.indexOf(QStringLiteral("<p>Agenda</p>")));

    // Above the body, what the meeting does not say makes no row.
    meeting->recipients.clear();
    meeting->location.clear();
    const QString bare = PreviewBodyHtml(*meeting);
    EXPECT_TRUE(bare.contains(QStringLiteral("<b>When: </b>")));
    EXPECT_TRUE(bare.contains(QStringLiteral("<b>From: </b>")));
    for (const char* absent : {"<b>Required: </b>", "<b>Location: </b>"})
        EXPECT_FALSE(bare.contains(QLatin1String(absent))) << absent;
}

TEST(PreviewPane, OpenTwiceGivesTwoFilesAndSaveProposesMsg)
{
    QTemporaryDir dir;
    const auto inner = Message();
    const auto message = Message({std::make_shared<TSizedAttach>(QStringLiteral("report.pdf"), 9),
        std::make_shared<TSizedAttach>(QStringLiteral("Forwarded note"), 100, inner)});
    TMailInfoFrame frame;
    frame.TempFolder = dir.path();
    QStringList opened;
    frame.OpenFile = [&](const QString& file) {
        opened << file;
        return true;
    };
    frame.Navigate(message);
    frame.OpenAttach(); // no attachment under the menu: nothing
    EXPECT_TRUE(opened.isEmpty());
    frame.SetActiveAttach(0);
    frame.OpenAction()->trigger();
    frame.OpenAction()->trigger();
    ASSERT_EQ(opened.size(), 2);
    EXPECT_EQ(opened[0], QDir(dir.path()).filePath(QStringLiteral("report.pdf")));
    EXPECT_EQ(opened[1], QDir(dir.path()).filePath(QStringLiteral("report(1).pdf")));
    QFile written(opened[1]);
    ASSERT_TRUE(written.open(QIODevice::ReadOnly));
    EXPECT_EQ(written.readAll(), QByteArray("report.pdf")); // the test attachment's content

    QString proposed, title;
    frame.AskSaveName = [&](const QString& t, const QString& name) {
        title = t;
        proposed = name;
        return QDir(dir.path()).filePath(QStringLiteral("saved.msg"));
    };
    frame.SetActiveAttach(1);
    EXPECT_EQ(frame.SaveAttach(), QDir(dir.path()).filePath(QStringLiteral("saved.msg")));
    EXPECT_EQ(title, QStringLiteral("Save attach as"));
    EXPECT_EQ(proposed, QStringLiteral("Forwarded note.msg"));
    EXPECT_TRUE(QFileInfo::exists(QDir(dir.path()).filePath(QStringLiteral("saved.msg"))));
    EXPECT_EQ(frame.AttachMenu()->actions().at(0)->text(), QStringLiteral("Save"));
    EXPECT_EQ(frame.AttachMenu()->actions().at(1)->text(), QStringLiteral("Open"));
}

// An attached message is saved and opened as an .msg file the reader reads
// back; a write that fails is shown, and leaves no file.
TEST(PreviewPane, AttachedMessagesAreSavedAndOpenedAsMsgFiles)
{
    QTemporaryDir dir;
    auto inner = Message({std::make_shared<TSizedAttach>(QStringLiteral("inside.txt"), 10)});
    inner->subject = QStringLiteral("Inner \u65e5\u672c");
    inner->text = QStringLiteral("inner text");
    const auto message = Message({std::make_shared<TSizedAttach>(QStringLiteral("forwarded.eml"), 100, inner),
        std::make_shared<TSizedAttach>(QString(), 100, inner)});
    TMailInfoFrame frame;
    frame.TempFolder = dir.filePath(QStringLiteral("private"));
    QStringList opened, messageWindows, errors;
    frame.OpenFile = [&](const QString& file) {
        opened << file;
        return true;
    };
    frame.OpenMessageFile = [&](const QString& file) { messageWindows << file; };
    frame.ShowError = [&](const QString& text) { errors << text; };
    frame.Navigate(message);

    const auto readBack = [](const QString& file) {
        mail::TFileMailMsgRequest request(file);
        return request.Message();
    };
    const struct {
        int index;
        QString proposed;
    } cases[] = {{0, QStringLiteral("forwarded.msg")}, {1, QStringLiteral("Inner \u65e5\u672c.msg")}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.index);
        frame.SetActiveAttach(c.index);
        QString proposed;
        frame.AskSaveName = [&](const QString&, const QString& name) {
            proposed = name;
            return QDir(dir.path()).filePath(name);
        };
        const QString saved = frame.SaveAttach();
        EXPECT_EQ(proposed, c.proposed);
        ASSERT_FALSE(saved.isEmpty());
        const auto savedMessage = readBack(saved);
        EXPECT_EQ(savedMessage->Subject(), inner->subject);
        EXPECT_EQ(savedMessage->Body(mail::mbtText).trimmed(), QStringLiteral("inner text"));
        ASSERT_EQ(savedMessage->Attaches()->Count(), 1);
        EXPECT_EQ(savedMessage->Attaches()->GetAttach(0)->FileName(), QStringLiteral("inside.txt"));
        // Saved again under the same name: the file is replaced.
        EXPECT_EQ(frame.SaveAttach(), saved);

        const QString temporary = frame.OpenAttach();
        ASSERT_FALSE(temporary.isEmpty());
        EXPECT_TRUE(temporary.endsWith(QLatin1String(".msg")));
        EXPECT_TRUE(temporary.startsWith(frame.TempFolder));
        EXPECT_EQ(messageWindows.last(), temporary);
        EXPECT_EQ(readBack(temporary)->Subject(), inner->subject);
    }
    EXPECT_TRUE(opened.isEmpty());
    EXPECT_TRUE(errors.isEmpty()) << errors.join(QLatin1Char('\n')).toStdString();

    // A folder that cannot be written: an error, and no file.
    frame.SetActiveAttach(0);
    const QString unwritable = dir.filePath(QStringLiteral("missing/folder/x.msg"));
    frame.AskSaveName = [&](const QString&, const QString&) { return unwritable; };
    EXPECT_TRUE(frame.SaveAttach().isEmpty());
    ASSERT_EQ(errors.size(), 1);
    EXPECT_TRUE(errors[0].startsWith(QStringLiteral("Could not write ")));
    EXPECT_FALSE(QFileInfo::exists(unwritable));
}

TEST(PreviewPane, HostileAttachmentNamesStayInTheFolder)
{
    QTemporaryDir dir;
    const QString folder = QDir(dir.path()).canonicalPath();
    const QString nul = QStringLiteral("evil") + QChar(0) + QStringLiteral("/../../x");
    const struct {
        QString name;
        QString expected; // empty: only "inside the folder" is checked
    } cases[] = {
        {QStringLiteral("../../x"), QStringLiteral("x")},
        {QStringLiteral("/etc/passwd"), QStringLiteral("passwd")},
        {QStringLiteral("C:\\Windows\\x"), QStringLiteral("x")},
        {QStringLiteral("CON"), QStringLiteral("_CON")},
        {QStringLiteral("lpt1.txt"), QStringLiteral("_lpt1.txt")},
        {QString(), QStringLiteral("attachment")},
        {QStringLiteral(".."), QStringLiteral("attachment")},
        {QStringLiteral("a\x01\x1f.txt"), QStringLiteral("a__.txt")},
        {nul, QStringLiteral("evil")},
        {QString(300, QLatin1Char('n')) + QStringLiteral(".pdf"), {}},
        {QString(120, QChar(0x00E9)) + QStringLiteral(".txt"), {}},
    };
    TMailInfoFrame frame;
    frame.TempFolder = folder;
    QStringList opened;
    frame.OpenFile = [&](const QString& file) {
        opened << file;
        return true;
    };
    for (const auto& c : cases) {
        const QString safe = tasks::SafeAttachName(c.name);
        if (!c.expected.isEmpty()) {
            EXPECT_EQ(safe, c.expected) << c.name.toStdString();
        }
        EXPECT_LE(safe.toUtf8().size(), 200) << c.name.toStdString();
        frame.Navigate(Message({std::make_shared<TSizedAttach>(c.name, 1)}));
        frame.SetActiveAttach(0);
        const QString written = frame.OpenAttach();
        ASSERT_FALSE(written.isEmpty()) << c.name.toStdString();
        EXPECT_EQ(QFileInfo(written).canonicalPath(), folder) << c.name.toStdString();
        EXPECT_TRUE(QFileInfo::exists(written));
    }
    EXPECT_TRUE(tasks::SafeAttachName(QString(300, QLatin1Char('n')) + QStringLiteral(".pdf")).endsWith(QStringLiteral(".pdf")));
    EXPECT_EQ(QDir(folder).entryList(QDir::Files).size(), qsizetype(std::size(cases)));
}

TEST(PreviewPane, BodyViewReachesNothingOutside)
{
    QTcpServer listener;
    ASSERT_TRUE(listener.listen(QHostAddress::LocalHost));
    int connections = 0;
    QObject::connect(&listener, &QTcpServer::newConnection, [&] {
        while (auto* socket = listener.nextPendingConnection()) {
            ++connections;
            socket->deleteLater();
        }
    });
    const QString base = QStringLiteral("http://127.0.0.1:%1").arg(listener.serverPort());
    auto message = Message();
    message->html = QStringLiteral("<html><head><link rel=stylesheet href=\"%1/style.css\">"
                                   "<script>document.title = 'script ran';</script></head>"
                                   "<body><p>Visible body</p><img src=\"%1/pixel.png\">"
                                   "<iframe src=\"%1/frame\"></iframe></body></html>").arg(base);
    TMailInfoFrame frame;
    frame.resize(640, 480);
    frame.show();
    bool loaded = false;
    QObject::connect(frame.BodyView(), &QWebEngineView::loadFinished, [&] { loaded = true; });
    frame.Navigate(message);
    WaitFor([&] { return loaded; }, 20000);
    ASSERT_TRUE(loaded);
    QString text;
    bool got = false;
    frame.BodyView()->page()->toPlainText([&](const QString& t) {
        text = t;
        got = true;
    });
    WaitFor([&] { return got; }, 10000);
    WaitFor([] { return false; }, 1000); // time for any stray request to arrive
    EXPECT_TRUE(text.contains(QStringLiteral("Visible body"))) << text.toStdString();
    EXPECT_NE(frame.BodyView()->page()->title(), QStringLiteral("script ran"));
    EXPECT_EQ(connections, 0);
}

TEST(PreviewPane, SanitizedBodyStillShowsCidPicturesAndLinks)
{
    auto message = Message({std::make_shared<TPictureAttach>(QStringLiteral("pic.png"), QStringLiteral("<pic1@x.org>"))});
    message->html = QStringLiteral("<p>Body <a href=\"https://example.org/\" onclick=\"x()\">link</a></p>"
                                   "<img id=pic src=\"cid:pic1@x.org\"><script>document.title = 'ran';</script>");
    const QString body = PreviewBodyHtml(*message);
    EXPECT_TRUE(body.startsWith(QStringLiteral("<!DOCTYPE html><html><head><meta http-equiv=\"Content-Security-Policy\"")))
        << body.left(200).toStdString();
    EXPECT_TRUE(body.contains(QStringLiteral("<a href=\"https://example.org/\">link</a>")));
    EXPECT_FALSE(body.contains(QStringLiteral("<script")));

    TMailInfoFrame frame;
    frame.resize(640, 480);
    frame.show();
    bool loaded = false;
    QObject::connect(frame.BodyView(), &QWebEngineView::loadFinished, [&] { loaded = true; });
    frame.Navigate(message);
    WaitFor([&] { return loaded; }, 20000);
    ASSERT_TRUE(loaded);
    EXPECT_TRUE(frame.HeaderView()->toPlainText().contains(QStringLiteral("Q1 <results> & plans")));
    // Scripts are off in the view; the test reads the page from its own world.
    int width = -1;
    const auto probe = [&] {
        frame.BodyView()->page()->runJavaScript(QStringLiteral("document.getElementById('pic').naturalWidth"),
            QWebEngineScript::ApplicationWorld, [&](const QVariant& v) { width = v.toInt(); });
    };
    // The picture comes from a background job: asked again until it is there.
    for (int i = 0; i < 50 && width <= 0; ++i) {
        width = -1;
        probe();
        WaitFor([&] { return width >= 0; }, 2000);
        if (width <= 0)
            WaitFor([] { return false; }, 100);
    }
    EXPECT_EQ(width, 5);
}

// Attachments are opened from a folder of the run's own: closed to others,
// below the temporary folder, gone when the program ends. A child run of
// this test program opens one and prints where it went.
TEST(PreviewPane, OpenedFilesFolderIsPrivateAndGoesWithTheRun)
{
    if (qEnvironmentVariableIsSet("TESSALY_PRINT_OPENED_FOLDER")) {
        const QString folder = OpenedFilesFolder();
        QFile file(QDir(folder).filePath(QStringLiteral("opened.txt")));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        std::printf("folder=%s\n", qUtf8Printable(folder));
        return;
    }
    const QString folder = OpenedFilesFolder();
    ASSERT_FALSE(folder.isEmpty());
    EXPECT_TRUE(folder.startsWith(QDir::tempPath()));
    EXPECT_EQ(QFileInfo(folder).permissions() & (QFileDevice::ReadGroup | QFileDevice::ReadOther | QFileDevice::WriteGroup
                                                    | QFileDevice::WriteOther | QFileDevice::ExeGroup | QFileDevice::ExeOther),
        QFileDevice::Permissions());
    EXPECT_EQ(OpenedFilesFolder(), folder); // one per run
    TMailInfoFrame frame;
    EXPECT_EQ(frame.TempFolder, folder);

    QProcess child;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("TESSALY_PRINT_OPENED_FOLDER"), QStringLiteral("1"));
    child.setProcessEnvironment(env);
    child.start(QCoreApplication::applicationFilePath(),
        {QStringLiteral("--gtest_filter=PreviewPane.OpenedFilesFolderIsPrivateAndGoesWithTheRun")});
    ASSERT_TRUE(child.waitForFinished(60000));
    ASSERT_EQ(child.exitCode(), 0) << child.readAllStandardOutput().toStdString();
    const QString output = QString::fromUtf8(child.readAllStandardOutput());
    const qsizetype at = output.indexOf(QStringLiteral("folder="));
    ASSERT_GE(at, 0) << output.toStdString();
    const QString childFolder = output.mid(at + 7).section(QLatin1Char('\n'), 0, 0).trimmed();
    EXPECT_NE(childFolder, folder); // the runs keep apart
    EXPECT_FALSE(QFileInfo::exists(childFolder)) << childFolder.toStdString();
    EXPECT_TRUE(QFileInfo::exists(folder)); // ours stays while we run
}

// When no application opens an attachment, the user is asked to save it.
TEST(PreviewPane, NoApplicationForAnAttachmentOffersSave)
{
    QTemporaryDir dir;
    TMailInfoFrame frame;
    frame.TempFolder = dir.filePath(QStringLiteral("opened"));
    frame.OpenFile = [](const QString&) { return false; };
    QStringList asked;
    bool answer = false;
    frame.AskSaveInstead = [&](const QString& name) {
        asked << name;
        return answer;
    };
    QStringList saveNames;
    frame.AskSaveName = [&](const QString&, const QString& name) {
        saveNames << name;
        return QDir(dir.path()).filePath(name);
    };
    frame.Navigate(Message({std::make_shared<TSizedAttach>(QStringLiteral("data.xyz"), 8)}));
    frame.SetActiveAttach(0);
    EXPECT_FALSE(frame.OpenAttach().isEmpty());
    EXPECT_EQ(asked, QStringList{QStringLiteral("data.xyz")});
    EXPECT_TRUE(saveNames.isEmpty()); // declined: nothing saved
    answer = true;
    frame.OpenAttach();
    EXPECT_EQ(asked.size(), 2);
    EXPECT_EQ(saveNames, QStringList{QStringLiteral("data.xyz")});
    EXPECT_TRUE(QFileInfo::exists(QDir(dir.path()).filePath(QStringLiteral("data.xyz"))));
}

// "Save all attachments": every one into the folder, names made safe and
// unique, an attached message as an .msg file.
TEST(PreviewPane, SaveAllAttachmentsWithSafeUniqueNames)
{
    QTemporaryDir dir;
    QDir(dir.path()).mkdir(QStringLiteral("out"));
    const QString out = dir.filePath(QStringLiteral("out"));
    QFile existing(QDir(out).filePath(QStringLiteral("a.txt")));
    ASSERT_TRUE(existing.open(QIODevice::WriteOnly));
    existing.write("there before");
    existing.close();
    auto inner = Message();
    inner->subject = QStringLiteral("Inner");
    const auto message = Message({std::make_shared<TSizedAttach>(QStringLiteral("a.txt"), 5),
        std::make_shared<TSizedAttach>(QStringLiteral("a.txt"), 5), std::make_shared<TSizedAttach>(QStringLiteral("../../evil.txt"), 5),
        std::make_shared<TSizedAttach>(QStringLiteral("fwd"), 100, inner)});
    TMailInfoFrame frame;
    QStringList errors;
    frame.ShowError = [&](const QString& text) { errors << text; };
    QString askedTitle;
    frame.AskFolder = [&](const QString& title) {
        askedTitle = title;
        return out;
    };
    frame.Navigate(message);
    const QStringList written = frame.SaveAllAttachments();
    EXPECT_EQ(askedTitle, QStringLiteral("Save all attachments into"));
    EXPECT_TRUE(errors.isEmpty()) << errors.join(QLatin1Char('\n')).toStdString();
    ASSERT_EQ(written.size(), 4);
    QStringList names;
    for (const QString& file : written) {
        EXPECT_EQ(QFileInfo(file).absolutePath(), QFileInfo(out).absoluteFilePath()) << file.toStdString();
        names << QFileInfo(file).fileName();
    }
    EXPECT_EQ(names[0], QStringLiteral("a(1).txt"));
    EXPECT_EQ(names[1], QStringLiteral("a(2).txt"));
    EXPECT_FALSE(names[2].contains(QLatin1Char('/')));
    EXPECT_TRUE(names[2].endsWith(QStringLiteral("evil.txt")));
    EXPECT_EQ(names[3], QStringLiteral("fwd.msg"));
    QFile before(QDir(out).filePath(QStringLiteral("a.txt")));
    ASSERT_TRUE(before.open(QIODevice::ReadOnly));
    EXPECT_EQ(before.readAll(), QByteArray("there before")); // nothing replaced
    EXPECT_EQ(mail::TFileMailMsgRequest(written[3]).Message()->Subject(), QStringLiteral("Inner"));
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files).size(), 0); // nothing above the folder
}

// "Save as PDF": the message with its header block, as a PDF that another
// reader (poppler's pdftotext) reads the subject, sender and body from.
TEST(PreviewPane, SaveAsPdfHoldsHeaderAndBody)
{
    QTemporaryDir dir;
    auto message = Message();
    message->html = QStringLiteral("<p>Quarterly figures are attached.</p>");
    TMailInfoFrame frame;
    frame.resize(640, 480);
    QStringList errors;
    frame.ShowError = [&](const QString& text) { errors << text; };
    frame.Navigate(message);
    const QString pdf = dir.filePath(QStringLiteral("message.pdf"));
    bool finished = false, ok = false;
    frame.SaveAsPdf(pdf, [&](bool written) {
        finished = true;
        ok = written;
    });
    WaitFor([&] { return finished; }, 30000);
    ASSERT_TRUE(finished);
    EXPECT_TRUE(ok);
    EXPECT_TRUE(errors.isEmpty()) << errors.join(QLatin1Char('\n')).toStdString();
    QFile file(pdf);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_TRUE(file.read(5) == "%PDF-");
    file.close();
    QProcess text;
    text.start(QStringLiteral("pdftotext"), {pdf, QStringLiteral("-")});
    ASSERT_TRUE(text.waitForFinished(30000));
    ASSERT_EQ(text.exitCode(), 0) << "pdftotext (poppler-utils) is needed";
    const QString read = QString::fromUtf8(text.readAllStandardOutput()).simplified();
    EXPECT_TRUE(read.contains(QStringLiteral("Q1 <results> & plans"))) << read.toStdString();
    EXPECT_TRUE(read.contains(QStringLiteral("Ann & Co"))) << read.toStdString();
    EXPECT_TRUE(read.contains(QStringLiteral("Quarterly figures are attached."))) << read.toStdString();
}
