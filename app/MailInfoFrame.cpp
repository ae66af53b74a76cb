#include "app/MailInfoFrame.h"

#include "core/DateTime.h"
#include "core/HtmlText.h"
#include "mail/HtmlSanitizer.h"
#include "mail/MailMsgHTML.h"
#include "mail/MsgWriter.h"
#include "platform/FileSystem.h"
#include "tasks/MailPSTTask.h"
#include "tasks/MailProperties.h"
#include "tasks/MailTemplate.h"
#include "app/PSTMainForm.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QEventLoop>
#include <QTimer>
#include <QFileInfo>
#include <QFutureWatcher>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QToolButton>
#include <QLocale>
#include <QMenu>
#include <QMessageBox>
#include <QMimeDatabase>
#include <QPlainTextEdit>
#include <QPageLayout>
#include <QPageSize>
#include <QPointer>
#include <QPrintDialog>
#include <QPrinter>
#include <QRegularExpression>
#include <QStackedWidget>
#include <QStandardPaths>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTextBrowser>
#include <QVBoxLayout>
#include <QWebEnginePage>
#include <QWebEngineProfile>
#include <QWebEngineSettings>
#include <QWebEngineUrlRequestInterceptor>
#include <QWebEngineUrlRequestJob>
#include <QWebEngineUrlScheme>
#include <QWebEngineUrlSchemeHandler>
#include <QWebEngineFindTextResult>
#include <QWebEngineView>
#include <QtConcurrent>

namespace tessaly::app {

namespace {

const QByteArray BodyScheme = QByteArrayLiteral("tessaly-body");
// The header block is never cut below this height (pixels).
constexpr int MinHeaderHeight = 120;
const QByteArray CidScheme = QByteArrayLiteral("cid");

QString Escaped(const QString& text)
{
    return core::HtmlEncode(text);
}

QString SizeText(qint64 size)
{
    return QLocale().formattedDataSize(size, 1, QLocale::DataSizeTraditionalFormat);
}

QString StripBrackets(QString id)
{
    id = id.trimmed();
    if (id.startsWith(QLatin1Char('<')) && id.endsWith(QLatin1Char('>')))
        id = id.mid(1, id.size() - 2);
    return id;
}

// Every request of the body view that is not the message's own is refused.
class TBlockingInterceptor : public QWebEngineUrlRequestInterceptor {
public:
    using QWebEngineUrlRequestInterceptor::QWebEngineUrlRequestInterceptor;
    void interceptRequest(QWebEngineUrlRequestInfo& info) override
    {
        const QByteArray scheme = info.requestUrl().scheme().toLatin1();
        if (scheme != BodyScheme && scheme != CidScheme && scheme != "data" && scheme != "about")
            info.block(true);
    }
};

// A link the user clicks opens in the user's browser; nothing else leaves
// the page.
class TPreviewPage : public QWebEnginePage {
public:
    using QWebEnginePage::QWebEnginePage;

protected:
    bool acceptNavigationRequest(const QUrl& url, NavigationType type, bool isMainFrame) override
    {
        if (url.scheme().toLatin1() == BodyScheme)
            return true;
        if (type == NavigationTypeLinkClicked && isMainFrame)
            OpenExternal(url);
        return false;
    }

    QWebEnginePage* createWindow(WebWindowType) override
    {
        // target="_blank": the new page only passes the address on.
        auto* page = new TExternalPage(profile(), this);
        return page;
    }

private:
    static void OpenExternal(const QUrl& url)
    {
        static const QStringList allowed = {QStringLiteral("http"), QStringLiteral("https"), QStringLiteral("mailto"),
            QStringLiteral("ftp")};
        if (allowed.contains(url.scheme().toLower()))
            QDesktopServices::openUrl(url);
    }

    class TExternalPage : public QWebEnginePage {
    public:
        TExternalPage(QWebEngineProfile* profile, QObject* parent) : QWebEnginePage(profile, parent) {}

    protected:
        bool acceptNavigationRequest(const QUrl& url, NavigationType, bool) override
        {
            OpenExternal(url);
            deleteLater();
            return false;
        }
    };
};

} // namespace

// Serves the shown message's body and its attachments by content id. The
// attachment data are read on a background job and handed back as each
// becomes ready.
class TMessageSchemeHandler : public QWebEngineUrlSchemeHandler {
public:
    using QWebEngineUrlSchemeHandler::QWebEngineUrlSchemeHandler;

    void SetMessage(std::shared_ptr<mail::IMailMessage> message, const QString& html)
    {
        m_message = std::move(message);
        m_html = html.toUtf8();
    }

    void requestStarted(QWebEngineUrlRequestJob* job) override
    {
        const QUrl url = job->requestUrl();
        if (url.scheme().toLatin1() == BodyScheme) {
            auto* buffer = new QBuffer(job);
            buffer->setData(m_html);
            job->reply(QByteArrayLiteral("text/html;charset=utf-8"), buffer);
            return;
        }
        const auto attach = FindAttach(QUrl::fromPercentEncoding(url.path().toUtf8()));
        if (!attach) {
            job->fail(QWebEngineUrlRequestJob::UrlNotFound);
            return;
        }
        QPointer<QWebEngineUrlRequestJob> guard(job);
        auto* watcher = new QFutureWatcher<QByteArray>(this);
        connect(watcher, &QFutureWatcherBase::finished, this, [watcher, guard, attach] {
            watcher->deleteLater();
            if (!guard)
                return;
            auto* buffer = new QBuffer(guard);
            buffer->setData(watcher->result());
            QByteArray type = attach->ContentType().toLatin1();
            if (type.isEmpty() || !type.contains('/'))
                type = QMimeDatabase().mimeTypeForData(buffer->data()).name().toLatin1();
            guard->reply(type, buffer);
        });
        watcher->setFuture(QtConcurrent::run([attach] {
            const auto device = attach->Content();
            return device ? device->readAll() : QByteArray();
        }));
    }

private:
    std::shared_ptr<mail::IMailAttach> FindAttach(const QString& id) const
    {
        const auto list = m_message ? m_message->Attaches() : nullptr;
        if (!list)
            return nullptr;
        for (int i = 0; i < list->Count(); ++i) {
            const auto attach = list->GetAttach(i);
            if (attach && (StripBrackets(attach->ContentID()).compare(id, Qt::CaseInsensitive) == 0
                              || attach->FileName().compare(id, Qt::CaseInsensitive) == 0))
                return attach;
        }
        return nullptr;
    }

    std::shared_ptr<mail::IMailMessage> m_message;
    QByteArray m_html;
};

void RegisterPreviewSchemes()
{
    for (const QByteArray& name : {BodyScheme, CidScheme}) {
        QWebEngineUrlScheme scheme(name);
        scheme.setSyntax(QWebEngineUrlScheme::Syntax::Path);
        scheme.setFlags(QWebEngineUrlScheme::LocalScheme | QWebEngineUrlScheme::LocalAccessAllowed);
        QWebEngineUrlScheme::registerScheme(scheme);
    }
}

// --- HTML of the pane --------------------------------------------------------------

QString HeaderBlockHtml(const mail::IMailMessage& message)
{
    QString html = QStringLiteral(
        "<style>"
        "body, h1, h2 { font-family: Calibri, Sans-serif; } "
        "h1 { font-size: 14pt; font-weight: bold; margin-bottom: 0px; } "
        "h2 { font-size: 14pt; font-weight: normal; margin-top: 8px; margin-bottom: 0px; } "
        ".caption { color: grey; } "
        ".attach { border-collapse: collapse; } "
        "td.attach { border: 1px dotted black; padding-left: 8px; padding-right: 8px; width: 50%; } "
        ".ex { border: 1px solid navy; background: #FFFFCC; } "
        ".scroller { overflow-x: hidden; }"
        "</style>");
    // A contact is titled by its name and has no sender, date or
    // recipients: its card, above the body, shows the rest.
    const auto* contact = dynamic_cast<const mail::IMailContact*>(&message);
    QString title = message.Subject();
    if (contact && title.isEmpty())
        title = contact->GetField(mail::mcfFullName).toString();
    html += QStringLiteral("<h1>") + Escaped(title) + QStringLiteral("</h1>");
    if (!contact) {
        const auto sender = message.Sender();
        html += QStringLiteral("<h2>") + Escaped(sender ? sender->Caption() : QString()) + QStringLiteral("</h2>");
        const mail::TDateTime sent = message.Date(mail::mdClientSubmit);
        html += QStringLiteral("<table><tr><td class=\"caption\">") + Escaped(QCoreApplication::translate("TMailInfoFrame", "Sent:"))
            + QStringLiteral(" </td><td>")
            + (sent > 0 ? Escaped(core::FormatDateTime(sent)) : QString()) + QStringLiteral("</td></tr>");
        html += QStringLiteral("<tr><td class=\"caption\">") + Escaped(QCoreApplication::translate("TMailInfoFrame", "To:")) + QStringLiteral(" </td><td>");
        for (auto kind : {mail::mrtTo, mail::mrtCC, mail::mrtBCC}) {
            const auto list = message.Recipients(kind);
            for (int i = 0; list && i < list->Count(); ++i)
                if (const auto recipient = list->GetRecipient(i))
                    html += Escaped(recipient->Caption()) + QStringLiteral("</br>");
        }
        html += QStringLiteral("</td></tr></table>");
    }
    const auto attaches = message.Attaches();
    if (attaches && attaches->Count() > 0) {
        html += QStringLiteral("<br><table class=\"attach\" width=\"100%\">");
        for (int i = 0; i < attaches->Count(); ++i) {
            const auto attach = attaches->GetAttach(i);
            if (i % 2 == 0)
                html += QStringLiteral("<tr>");
            html += QStringLiteral("<td class=\"attach\"><a href=%1>").arg(i);
            html += Escaped(attach ? attach->FileName() : QString());
            const auto sized = std::dynamic_pointer_cast<mail::IMailAttach2>(attach);
            if (sized && sized->Size() > 0)
                html += QStringLiteral(" (") + SizeText(sized->Size()) + QLatin1Char(')');
            html += QStringLiteral("</a></td>");
            if (i % 2 == 1)
                html += QStringLiteral("</tr>");
        }
        html += QStringLiteral("</table>");
    }
    return html;
}

QString EmptyViewHtml()
{
    return QStringLiteral("<font face=Tahoma color=lightgray size=22>") + Escaped(QCoreApplication::translate("TMailInfoFrame", "<No mail to show>"));
}

QString PreviewBodyHtml(const mail::IMailMessage& message)
{
    mail::TMailHTMLOptions options;
    options.Sender = options.Recipient = options.CC = options.BCC = options.Date = options.Subject = false;
    options.AttachInfo = false;
    options.EmbedImages = false;
    options.HTMLOutput = true;
    const mail::TMessageHTMLTask task(message);
    QString html = mail::TMailMsgHTML::Render(message, options, task);
    html = mail::RepairBodyCharset(message, html);
    // The view runs no script and reaches nothing outside already; the body
    // is sanitized all the same, as every page made of a message's HTML.
    return mail::THtmlSanitizer::Sanitize(QStringLiteral("<!DOCTYPE html><html>") + html + QStringLiteral("</html>"));
}

// --- attachments -------------------------------------------------------------------

QString FreeFileName(const QString& folder, const QString& name)
{
    const QDir dir(folder);
    if (!QFileInfo::exists(dir.filePath(name)))
        return dir.filePath(name);
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    const QString base = dot > 0 ? name.left(dot) : name;
    const QString extension = dot > 0 ? name.mid(dot) : QString();
    for (int n = 1;; ++n) {
        const QString candidate = dir.filePath(QStringLiteral("%1(%2)%3").arg(base).arg(n).arg(extension));
        if (!QFileInfo::exists(candidate))
            return candidate;
    }
}

bool WriteAttachment(const mail::IMailAttach& attach, const QString& fileName, QString* error)
{
    QFile file(fileName);
    if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly)) {
        if (error)
            *error = file.errorString();
        return false;
    }
    const auto content = attach.Content();
    if (!content) {
        if (error)
            *error = QCoreApplication::translate("TMailInfoFrame", "the attachment's data cannot be read");
        file.remove();
        return false;
    }
    bool ok = true;
    char buffer[64 * 1024];
    for (qint64 read; (read = content->read(buffer, sizeof buffer)) > 0;)
        ok = ok && file.write(buffer, read) == read;
    ok = file.flush() && ok;
    if (!ok) {
        if (error)
            *error = file.errorString();
        file.remove();
    }
    return ok;
}

QString ProposedSaveName(const mail::IMailAttach& attach)
{
    const auto message = attach.AsMailMessage();
    if (!message)
        return tasks::SafeAttachName(attach.FileName());
    // An attached message is saved as an .msg file, whatever its source called it.
    QString name = attach.FileName().trimmed();
    if (name.isEmpty())
        name = message->Subject().trimmed();
    if (name.isEmpty())
        name = QCoreApplication::translate("TMailInfoFrame", "Attached message");
    if (name.endsWith(QLatin1String(".eml"), Qt::CaseInsensitive))
        name.chop(4);
    if (!name.endsWith(QLatin1String(".msg"), Qt::CaseInsensitive))
        name += QStringLiteral(".msg");
    return tasks::SafeAttachName(name);
}

bool WriteAttachedMessage(const mail::IMailMessage& message, const QString& fileName, bool replace, QString* error)
{
    return mail::TMsgWriter(tasks::ToPSTMessage(message)).SaveToFile(fileName, replace, error, true);
}

namespace {

// A profile whose pages reach nothing but the message they are given: no
// network, no scripts, nothing kept on disk. Returns the handler that
// serves the message.
TMessageSchemeHandler* ClosedProfile(QWebEngineProfile* profile)
{
    profile->setHttpCacheType(QWebEngineProfile::MemoryHttpCache);
    profile->setPersistentCookiesPolicy(QWebEngineProfile::NoPersistentCookies);
    profile->setUrlRequestInterceptor(new TBlockingInterceptor(profile));
    auto* handler = new TMessageSchemeHandler(profile);
    profile->installUrlSchemeHandler(BodyScheme, handler);
    profile->installUrlSchemeHandler(CidScheme, handler);
    QWebEngineSettings* settings = profile->settings();
    settings->setAttribute(QWebEngineSettings::JavascriptEnabled, false);
    settings->setAttribute(QWebEngineSettings::PluginsEnabled, false);
    settings->setAttribute(QWebEngineSettings::LocalStorageEnabled, false);
    settings->setAttribute(QWebEngineSettings::AutoLoadIconsForPage, false);
    settings->setAttribute(QWebEngineSettings::DnsPrefetchEnabled, false);
    settings->setAttribute(QWebEngineSettings::LocalContentCanAccessRemoteUrls, false);
    return handler;
}

int g_pageSerial = 0; // a new address for every page, so that nothing comes from a cache

} // namespace

QString OpenedFilesFolder()
{
    // One folder per run, below the user's private one; it goes when the
    // program ends.
    static const std::unique_ptr<QTemporaryDir> folder = [] {
        const QString parent = platform::PrivateTempFolder(QStringLiteral("Tessaly"));
        auto dir = std::make_unique<QTemporaryDir>(
            QDir(parent.isEmpty() ? QDir::tempPath() : parent).filePath(QStringLiteral("opened-XXXXXX")));
        return dir->isValid() ? std::move(dir) : nullptr;
    }();
    return folder ? folder->path() : QString();
}

namespace {

// One attempt at loading the page and printing it. The engine is watched:
// a renderer that dies, or a page that neither loads nor prints in time,
// ends the attempt with the reason (loadStalled: it never loaded).
QByteArray PrintPageOnce(QWebEngineProfile* profile, qsizetype pageBytes, const QPageLayout& layout, QString* error, bool* loadStalled)
{
    QWebEnginePage page(profile);
    QEventLoop loop;
    QTimer watch;
    watch.setSingleShot(true);
    QObject::connect(&watch, &QTimer::timeout, &loop, &QEventLoop::quit);
    bool loaded = false, finished = false, died = false;
    QObject::connect(&page, &QWebEnginePage::loadFinished, &loop, [&](bool ok) {
        loaded = ok;
        finished = true;
        loop.quit();
    });
    QObject::connect(&page, &QWebEnginePage::renderProcessTerminated, &loop, [&] {
        died = true;
        loop.quit();
    });
    page.setUrl(QUrl(QStringLiteral("%1:print/%2").arg(QLatin1String(BodyScheme)).arg(++g_pageSerial)));
    // Every part of the page is local: it loads in a moment, a page of a
    // whole run in a second or so a megabyte. The engine at times never
    // finishes a load; the page is then tried again.
    watch.start(std::chrono::seconds(10 + pageBytes / 1000000));
    if (!finished)
        loop.exec();
    if (!loaded) {
        *loadStalled = !finished && !died;
        *error = died ? QCoreApplication::translate("TMailInfoFrame", "the browser engine stopped while loading the page for printing")
                      : QCoreApplication::translate("TMailInfoFrame", "the page could not be loaded for printing");
        return {};
    }
    QByteArray pdf;
    bool printed = false;
    page.printToPdf(
        [&](const QByteArray& bytes) {
            pdf = bytes;
            printed = true;
            loop.quit();
        },
        layout);
    // A page of a whole run takes long; the limit is there only so that an
    // engine that stopped answering does not hold the run for ever.
    watch.start(std::chrono::minutes(10));
    if (!printed && !died)
        loop.exec();
    if (pdf.isEmpty())
        *error = died ? QCoreApplication::translate("TMailInfoFrame", "the browser engine stopped while printing the page")
                      : QCoreApplication::translate("TMailInfoFrame", "the page could not be printed");
    return pdf;
}

} // namespace

QByteArray PrintPageToPdf(const QString& html, const QPageLayout& layout, QString* error)
{
    // One closed profile for every page of the run.
    static QWebEngineProfile* const profile = new QWebEngineProfile(QCoreApplication::instance());
    static TMessageSchemeHandler* const handler = ClosedProfile(profile);
    handler->SetMessage(nullptr, html);
    QString failure;
    bool loadStalled = false;
    QByteArray pdf = PrintPageOnce(profile, html.size(), layout, &failure, &loadStalled);
    // A page the engine never finished loading is tried once more, in a new
    // page.
    if (pdf.isEmpty() && loadStalled)
        pdf = PrintPageOnce(profile, html.size(), layout, &failure, &loadStalled);
    if (pdf.isEmpty() && error)
        *error = failure;
    return pdf;
}

// --- the pane ----------------------------------------------------------------------

TMailInfoFrame::TMailInfoFrame(QWidget* parent) : QWidget(parent)
{
    TempFolder = OpenedFilesFolder();
    OpenFile = [](const QString& fileName) { return QDesktopServices::openUrl(QUrl::fromLocalFile(fileName)); };
    AskSaveInstead = [this](const QString& name) {
        return QMessageBox::question(this, QStringLiteral("Tessaly"),
                   QCoreApplication::translate("TMailInfoFrame", "No application is set to open %1. Save it instead?").arg(name),
                   QMessageBox::Save | QMessageBox::Cancel, QMessageBox::Save)
            == QMessageBox::Save;
    };
    AskFolder = [this](const QString& title) { return QFileDialog::getExistingDirectory(this, title); };
    OpenMessageFile = [this](const QString& fileName) {
        auto* form = new TMessageForm(fileName, window());
        form->setAttribute(Qt::WA_DeleteOnClose);
        form->setWindowFlag(Qt::Window);
        form->show();
    };
    AskSaveName = [this](const QString& title, const QString& proposed) {
        return QFileDialog::getSaveFileName(this, title, proposed);
    };
    ShowError = [this](const QString& text) { QMessageBox::warning(this, QStringLiteral("Tessaly"), text); };

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    m_tabs = new QTabWidget;
    m_tabs->setTabPosition(QTabWidget::South);
    m_tabs->setDocumentMode(true);
    layout->addWidget(m_tabs);

    // HTML: the empty view, or the header block above the body.
    m_htmlStack = new QStackedWidget;
    m_empty = new QTextBrowser;
    m_empty->setFrameShape(QFrame::NoFrame);
    m_empty->setHtml(QStringLiteral("<div align=center><br><br>") + EmptyViewHtml() + QStringLiteral("</div>"));
    m_htmlStack->addWidget(m_empty);
    auto* page = new QWidget;
    auto* pageLayout = new QVBoxLayout(page);
    pageLayout->setContentsMargins(0, 0, 0, 0);
    pageLayout->setSpacing(0);
    m_header = new QTextBrowser;
    m_header->setFrameShape(QFrame::NoFrame);
    m_header->setOpenLinks(false);
    m_header->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    pageLayout->addWidget(m_header);
    m_profile = new QWebEngineProfile(this); // off the record: nothing is kept on disk
    m_handler = ClosedProfile(m_profile);
    m_body = new QWebEngineView;
    m_body->setPage(new TPreviewPage(m_profile, m_body));
    m_body->setContextMenuPolicy(Qt::NoContextMenu);
    pageLayout->addWidget(m_body, 1);
    m_htmlStack->addWidget(page);
    m_tabs->addTab(m_htmlStack, QCoreApplication::translate("TMailInfoFrame", "HTML"));

    const auto textBox = [] {
        auto* box = new QPlainTextEdit;
        box->setReadOnly(true);
        box->setLineWrapMode(QPlainTextEdit::NoWrap);
        box->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
        box->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
        box->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
        return box;
    };
    m_text = textBox();
    m_tabs->addTab(m_text, QCoreApplication::translate("TMailInfoFrame", "Text"));
    m_headers = textBox();
    m_tabs->addTab(m_headers, QCoreApplication::translate("TMailInfoFrame", "Headers"));

    // The find bar, hidden until asked for.
    m_findBar = new QWidget;
    auto* findLayout = new QHBoxLayout(m_findBar);
    findLayout->setContentsMargins(4, 2, 4, 2);
    findLayout->addWidget(new QLabel(QCoreApplication::translate("TMailInfoFrame", "Find:")));
    m_findEdit = new QLineEdit;
    m_findEdit->setClearButtonEnabled(true);
    m_findEdit->installEventFilter(this);
    findLayout->addWidget(m_findEdit, 1);
    const auto findButton = [&](const QString& text, const QString& tip, bool backward) {
        auto* button = new QToolButton;
        button->setText(text);
        button->setToolTip(tip);
        button->setAutoRaise(true);
        connect(button, &QToolButton::clicked, this, [this, backward] { FindNext(backward); });
        findLayout->addWidget(button);
    };
    findButton(QStringLiteral("\u25B2"), QCoreApplication::translate("TMailInfoFrame", "Previous match (Shift+Enter)"), true);
    findButton(QStringLiteral("\u25BC"), QCoreApplication::translate("TMailInfoFrame", "Next match (Enter)"), false);
    m_findStatus = new QLabel;
    findLayout->addWidget(m_findStatus);
    auto* close = new QToolButton;
    close->setText(QStringLiteral("\u2715"));
    close->setToolTip(QCoreApplication::translate("TMailInfoFrame", "Close (Esc)"));
    close->setAutoRaise(true);
    connect(close, &QToolButton::clicked, this, &TMailInfoFrame::HideFindBar);
    findLayout->addWidget(close);
    m_findBar->hide();
    layout->addWidget(m_findBar);
    connect(m_findEdit, &QLineEdit::textEdited, this, [this] {
        // As the text is typed, the match grows where it stands.
        if (auto* view = qobject_cast<QPlainTextEdit*>(m_tabs->currentWidget()); view && view->textCursor().hasSelection()) {
            QTextCursor cursor = view->textCursor();
            cursor.setPosition(cursor.selectionStart());
            view->setTextCursor(cursor);
        }
        FindNext();
    });
    m_miPrint = new QAction(QCoreApplication::translate("TMailInfoFrame", "&Print..."), this);
    m_miPrint->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_P));
    connect(m_miPrint, &QAction::triggered, this, &TMailInfoFrame::Print);
    m_miSavePdf = new QAction(QCoreApplication::translate("TMailInfoFrame", "Save as PDF..."), this);
    m_miSavePdf->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_P));
    connect(m_miSavePdf, &QAction::triggered, this, [this] { SaveAsPdf(); });
    m_miSaveAll = new QAction(QCoreApplication::translate("TMailInfoFrame", "Save all attachments..."), this);
    m_miSaveAll->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_A));
    connect(m_miSaveAll, &QAction::triggered, this, [this] { SaveAllAttachments(); });
    m_miFind = new QAction(QCoreApplication::translate("TMailInfoFrame", "Find in message..."), this);
    m_miFind->setShortcut(QKeySequence::Find);
    m_miFind->setShortcutContext(Qt::WindowShortcut);
    connect(m_miFind, &QAction::triggered, this, &TMailInfoFrame::ShowFindBar);
    addAction(m_miFind);
    // A match found in one tab means nothing in another.
    connect(m_tabs, &QTabWidget::currentChanged, this, [this] {
        if (m_findBar->isVisible())
            FindNext();
    });

    m_pmAttach = new QMenu(this);
    m_miSaveAttach = m_pmAttach->addAction(QCoreApplication::translate("TMailInfoFrame", "Save"), this, [this] { SaveAttach(); });
    m_miOpen = m_pmAttach->addAction(QCoreApplication::translate("TMailInfoFrame", "Open"), this, [this] { OpenAttach(); });
    connect(m_header, &QTextBrowser::anchorClicked, this, [this](const QUrl& url) {
        bool ok = false;
        const int index = url.toString().toInt(&ok);
        if (!ok)
            return;
        SetActiveAttach(index);
        m_pmAttach->exec(QCursor::pos());
        SetActiveAttach(-1);
    });
    ClearView();
}

void TMailInfoFrame::ShowFindBar()
{
    m_findBar->show();
    m_findEdit->setFocus(Qt::ShortcutFocusReason);
    m_findEdit->selectAll();
}

void TMailInfoFrame::HideFindBar()
{
    if (!m_findBar->isVisible())
        return;
    m_findBar->hide();
    m_findStatus->clear();
    m_body->findText(QString()); // clears the marks
    m_tabs->currentWidget()->setFocus(Qt::OtherFocusReason);
}

void TMailInfoFrame::FindNext(bool backward)
{
    const QString text = m_findEdit->text();
    if (m_tabs->currentWidget() == m_htmlStack) {
        if (ShowsEmptyView() || text.isEmpty()) {
            m_body->findText(QString());
            m_findStatus->setText(text.isEmpty() || !ShowsEmptyView() ? QString() : QCoreApplication::translate("TMailInfoFrame", "Not found"));
            return;
        }
        const QPointer<QLabel> status(m_findStatus);
        m_body->findText(text, backward ? QWebEnginePage::FindBackward : QWebEnginePage::FindFlags(),
            [status](const QWebEngineFindTextResult& result) {
                if (status)
                    status->setText(result.numberOfMatches() > 0
                            ? QCoreApplication::translate("TMailInfoFrame", "%1 of %2").arg(result.activeMatch()).arg(result.numberOfMatches())
                            : QCoreApplication::translate("TMailInfoFrame", "Not found"));
            });
        return;
    }
    auto* view = qobject_cast<QPlainTextEdit*>(m_tabs->currentWidget());
    if (!view)
        return;
    if (text.isEmpty()) {
        m_findStatus->clear();
        return;
    }
    const QTextDocument::FindFlags flags = backward ? QTextDocument::FindBackward : QTextDocument::FindFlags();
    bool found = view->find(text, flags);
    if (!found) { // round the end
        QTextCursor cursor = view->textCursor();
        cursor.movePosition(backward ? QTextCursor::End : QTextCursor::Start);
        view->setTextCursor(cursor);
        found = view->find(text, flags);
    }
    m_findStatus->setText(found ? QString() : QCoreApplication::translate("TMailInfoFrame", "Not found"));
}

bool TMailInfoFrame::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_findEdit && (event->type() == QEvent::ShortcutOverride || event->type() == QEvent::KeyPress)) {
        const auto* key = static_cast<QKeyEvent*>(event);
        const bool enter = key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter;
        if (key->key() == Qt::Key_Escape || enter) {
            // The bar's keys before the window's (Esc closes a message window).
            event->accept();
            if (event->type() == QEvent::KeyPress) {
                if (enter)
                    FindNext(key->modifiers() & Qt::ShiftModifier);
                else
                    HideFindBar();
            }
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}

TMailInfoFrame::~TMailInfoFrame()
{
    delete m_printView;
    // The page goes before its profile.
    delete m_body;
}

QWidget* TMailInfoFrame::FocusTarget() const
{
    if (m_tabs->currentWidget() != m_htmlStack)
        return m_tabs->currentWidget();
    return ShowsEmptyView() ? static_cast<QWidget*>(m_empty) : m_body;
}

bool TMailInfoFrame::ShowsEmptyView() const
{
    return m_htmlStack->currentWidget() == m_empty;
}

void TMailInfoFrame::ClearView()
{
    m_message.reset();
    m_activeAttach = -1;
    m_headerHtml.clear();
    m_handler->SetMessage(nullptr, {});
    m_header->clear();
    m_text->clear();
    m_headers->clear();
    m_htmlStack->setCurrentWidget(m_empty);
}

void TMailInfoFrame::Navigate(std::shared_ptr<mail::IMailMessage> message)
{
    if (!message) {
        ClearView();
        return;
    }
    m_message = std::move(message);
    m_activeAttach = -1;
    m_headerHtml = HeaderBlockHtml(*m_message);
    // The rich-text view ignores "</br>", which browsers read as a break:
    // it is given the break it reads.
    m_header->setHtml(QString(m_headerHtml).replace(QLatin1String("</br>"), QLatin1String("<br>")));
    m_htmlStack->setCurrentWidget(m_htmlStack->widget(1));
    FitHeader();
    m_handler->SetMessage(m_message, PreviewBodyHtml(*m_message));
    // A new address for every message, so that nothing is taken from a cache.
    m_body->setUrl(QUrl(QStringLiteral("%1:message/%2").arg(QLatin1String(BodyScheme)).arg(++g_pageSerial)));
    QString text = m_message->Body(mail::mbtText);
    if (text.isEmpty())
        text = core::HtmlToPlainText(m_message->Body(mail::mbtHTML));
    m_text->setPlainText(text);
    m_headers->setPlainText(m_message->Headers());
}

void TMailInfoFrame::FitHeader()
{
    const int width = std::max(100, m_header->viewport()->width());
    m_header->document()->setTextWidth(width);
    // The whole block where it fits; a long list of recipients scrolls in
    // two fifths of the pane, and the body keeps the rest.
    const int whole = int(m_header->document()->size().height()) + 32;
    const int most = std::max(MinHeaderHeight, height() * 2 / 5);
    m_header->setVerticalScrollBarPolicy(whole > most ? Qt::ScrollBarAsNeeded : Qt::ScrollBarAlwaysOff);
    m_header->setFixedHeight(std::min(whole, most));
}

void TMailInfoFrame::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    if (m_message)
        FitHeader();
}

void TMailInfoFrame::SetActiveAttach(int index)
{
    m_activeAttach = index;
}

std::shared_ptr<mail::IMailAttach> TMailInfoFrame::ActiveAttach() const
{
    const auto list = m_message && m_activeAttach >= 0 ? m_message->Attaches() : nullptr;
    if (!list || m_activeAttach >= list->Count())
        return nullptr;
    return list->GetAttach(m_activeAttach);
}

QString TMailInfoFrame::OpenAttach()
{
    const auto attach = ActiveAttach();
    if (!attach)
        return {};
    if (TempFolder.isEmpty() || !QDir().mkpath(TempFolder)) {
        ShowError(QCoreApplication::translate("TMailInfoFrame", "Could not make a folder for opened files below %1.").arg(QDir::tempPath()));
        return {};
    }
    // An attached message opens in a message window of its own, from an
    // .msg file written for it.
    const auto message = attach->AsMailMessage();
    const QString fileName = FreeFileName(TempFolder, message ? ProposedSaveName(*attach) : tasks::SafeAttachName(attach->FileName()));
    QString error;
    if (message ? !WriteAttachedMessage(*message, fileName, false, &error) : !WriteAttachment(*attach, fileName, &error)) {
        ShowError(QCoreApplication::translate("TMailInfoFrame", "Could not write %1: %2").arg(fileName, error));
        return {};
    }
    if (message) {
        OpenMessageFile(fileName);
    } else if (!OpenFile(fileName) && AskSaveInstead(attach->FileName().isEmpty() ? QFileInfo(fileName).fileName() : attach->FileName())) {
        SaveAttach();
    }
    return fileName;
}

QStringList TMailInfoFrame::SaveAllAttachments(QString folder)
{
    if (!m_message || !m_message->Attaches() || m_message->Attaches()->Count() == 0)
        return {};
    if (folder.isEmpty())
        folder = AskFolder(QCoreApplication::translate("TMailInfoFrame", "Save all attachments into"));
    if (folder.isEmpty())
        return {};
    QStringList written, failed;
    const auto attaches = m_message->Attaches();
    for (int i = 0; i < attaches->Count(); ++i) {
        const auto attach = attaches->GetAttach(i);
        if (!attach)
            continue;
        // Names made safe, and unique beside what is there already.
        const QString fileName = FreeFileName(folder, ProposedSaveName(*attach));
        QString error;
        const auto message = attach->AsMailMessage();
        if (message ? WriteAttachedMessage(*message, fileName, false, &error) : WriteAttachment(*attach, fileName, &error))
            written << fileName;
        else
            failed << QCoreApplication::translate("TMailInfoFrame", "%1: %2").arg(QFileInfo(fileName).fileName(), error);
    }
    if (!failed.isEmpty())
        ShowError(QCoreApplication::translate("TMailInfoFrame", "Could not write every attachment into %1:\n%2").arg(QDir::toNativeSeparators(folder), failed.join(QLatin1Char('\n'))));
    return written;
}

void TMailInfoFrame::RenderForPrint(const std::function<void(QWebEngineView*)>& ready)
{
    if (!m_message)
        return;
    if (!m_printView) {
        // A page of its own, with the header block in it, never shown.
        auto* profile = new QWebEngineProfile(this);
        m_printHandler = ClosedProfile(profile);
        m_printView = new QWebEngineView;
        m_printView->setPage(new QWebEnginePage(profile, m_printView));
        m_printView->setAttribute(Qt::WA_DontShowOnScreen);
        m_printView->resize(800, 1000);
    }
    m_printHandler->SetMessage(m_message, tasks::StandaloneHtmlPage(*m_message));
    QObject::disconnect(m_printView, &QWebEngineView::loadFinished, nullptr, nullptr);
    connect(m_printView, &QWebEngineView::loadFinished, this, [this, ready](bool) {
        QObject::disconnect(m_printView, &QWebEngineView::loadFinished, nullptr, nullptr);
        ready(m_printView);
    });
    m_printView->setUrl(QUrl(QStringLiteral("%1:print/%2").arg(QLatin1String(BodyScheme)).arg(++g_pageSerial)));
}

void TMailInfoFrame::SaveAsPdf(QString fileName, const std::function<void(bool)>& done)
{
    if (!m_message)
        return;
    if (fileName.isEmpty())
        fileName = AskSaveName(QCoreApplication::translate("TMailInfoFrame", "Save as PDF"), tasks::SafeAttachName(m_message->Subject().isEmpty()
                                                                   ? QCoreApplication::translate("TMailInfoFrame", "message") : m_message->Subject())
                                                                   + QStringLiteral(".pdf"));
    if (fileName.isEmpty())
        return;
    RenderForPrint([this, fileName, done](QWebEngineView* view) {
        QObject::disconnect(view->page(), &QWebEnginePage::pdfPrintingFinished, nullptr, nullptr);
        connect(view->page(), &QWebEnginePage::pdfPrintingFinished, this, [this, done](const QString& path, bool ok) {
            if (!ok)
                ShowError(QCoreApplication::translate("TMailInfoFrame", "Could not write %1.").arg(QDir::toNativeSeparators(path)));
            if (done)
                done(ok);
        });
        view->page()->printToPdf(fileName, QPageLayout(QPageSize(QPageSize::A4), QPageLayout::Portrait, QMarginsF(15, 15, 15, 15), QPageLayout::Millimeter));
    });
}

void TMailInfoFrame::Print()
{
    if (!m_message)
        return;
    auto printer = std::make_shared<QPrinter>(QPrinter::HighResolution);
    QPrintDialog dialog(printer.get(), this);
    dialog.setWindowTitle(QCoreApplication::translate("TMailInfoFrame", "Print message"));
    if (dialog.exec() != QDialog::Accepted)
        return;
    RenderForPrint([this, printer](QWebEngineView* view) {
        QObject::disconnect(view, &QWebEngineView::printFinished, nullptr, nullptr);
        // The printer lives until the page is printed.
        connect(view, &QWebEngineView::printFinished, this, [this, printer](bool ok) {
            if (!ok)
                ShowError(QCoreApplication::translate("TMailInfoFrame", "The message could not be printed."));
        });
        view->print(printer.get());
    });
}

QString TMailInfoFrame::SaveAttach()
{
    const auto attach = ActiveAttach();
    if (!attach)
        return {};
    const QString fileName = AskSaveName(QCoreApplication::translate("TMailInfoFrame", "Save attach as"), ProposedSaveName(*attach));
    if (fileName.isEmpty())
        return {};
    // The user confirmed the name: an existing file is replaced.
    QString error;
    bool written;
    if (const auto message = attach->AsMailMessage()) {
        written = WriteAttachedMessage(*message, fileName, true, &error);
    } else {
        if (QFileInfo::exists(fileName))
            QFile::remove(fileName);
        written = WriteAttachment(*attach, fileName, &error);
    }
    if (!written) {
        ShowError(QCoreApplication::translate("TMailInfoFrame", "Could not write %1: %2").arg(fileName, error));
        return {};
    }
    return fileName;
}

} // namespace tessaly::app
