#pragma once

// The preview pane: a compact header block with subject, sender, date,
// recipients and attachment links above the body, and the body as text and
// the header lines on tabs of their own. The body view never reaches the
// network: only the message itself and its attachments are served to it.

#include "mail/MailMsgIntf.h"

#include <QWidget>
#include <functional>

class QMenu;
class QPageLayout;
class QAction;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QStackedWidget;
class QTabWidget;
class QTextBrowser;
class QWebEngineProfile;
class QWebEngineView;

namespace tessaly::app {

class TMessageSchemeHandler;

// Registers the URL schemes the body view serves; call before the
// application object is created.
void RegisterPreviewSchemes();

// The header block's HTML for a message.
QString HeaderBlockHtml(const mail::IMailMessage& message);
// The empty view's HTML.
QString EmptyViewHtml();
// The body as the HTML view shows it.
QString PreviewBodyHtml(const mail::IMailMessage& message);

// The folder of this run that attachments are opened from: private to the
// user (mode 0700), below the temporary folder, removed at exit.
QString OpenedFilesFolder();

// A page printed to PDF by the browser engine, in a profile that reaches
// nothing outside the page; runs the event loop until done. Empty with the
// reason in `error` when it fails. Needs the application object.
QByteArray PrintPageToPdf(const QString& html, const QPageLayout& layout, QString* error = nullptr);

// A name in a folder that is not taken yet: the name itself, else
// "base(N).ext" with N counting from 1.
QString FreeFileName(const QString& folder, const QString& name);
// The attachment's data into a new file; false when it cannot be written
// (its data cannot be had included).
bool WriteAttachment(const mail::IMailAttach& attach, const QString& fileName, QString* error = nullptr);
// An attached message as an .msg file; with `replace` a file of that name
// is replaced. False with the reason when nothing was written.
bool WriteAttachedMessage(
    const mail::IMailMessage& message, const QString& fileName, bool replace, QString* error = nullptr);
// The name offered when saving an attachment: its safe name; an attached
// message's name (or subject) ending in ".msg".
QString ProposedSaveName(const mail::IMailAttach& attach);

class TMailInfoFrame : public QWidget {
public:
    explicit TMailInfoFrame(QWidget* parent = nullptr);
    ~TMailInfoFrame() override;

    // Shows a message; null gives the empty view.
    void Navigate(std::shared_ptr<mail::IMailMessage> message);
    void ClearView();
    const std::shared_ptr<mail::IMailMessage>& Message() const { return m_message; }

    // The attachment the menu acts on, by index; -1 for none.
    void SetActiveAttach(int index);
    // "Open": into the temporary folder, then the associated application;
    // an attached message as an .msg file in a message window.
    // Returns the file written, empty when nothing was.
    QString OpenAttach();
    // "Save": asks for the file name, then writes.
    QString SaveAttach();
    // Every attachment of the shown message into a folder (asked when
    // empty), names made safe and unique; returns the files written.
    QStringList SaveAllAttachments(QString folder = {});
    // The shown message with its header block, to a printer or a PDF file
    // (asked when empty); `done` gets whether the file was written.
    void Print();
    void SaveAsPdf(QString fileName = {}, const std::function<void(bool)>& done = {});
    QAction* PrintAction() const { return m_miPrint; }
    QAction* SavePdfAction() const { return m_miSavePdf; }
    QAction* SaveAllAction() const { return m_miSaveAll; }

    // Find in the shown message (Ctrl+F): a bar below the view; Enter finds
    // the next match, Shift+Enter the one before, Esc closes the bar.
    void ShowFindBar();
    void HideFindBar();
    // Finds the bar's text in the view of the current tab, from the current
    // match on, wrapping at the end; the bar says "N of M" or "Not found".
    void FindNext(bool backward = false);
    QWidget* FindBar() const { return m_findBar; }
    QLineEdit* FindEdit() const { return m_findEdit; }
    QLabel* FindStatus() const { return m_findStatus; }
    QAction* FindAction() const { return m_miFind; }

    // Replaceable for tests: the folder "Open" writes to, how a written
    // file is opened, how the save name is asked, how errors are shown.
    QString TempFolder;
    // Opens a file in its application; false when none can.
    std::function<bool(const QString& fileName)> OpenFile;
    // Asked when no application opens an attachment: save it instead?
    std::function<bool(const QString& name)> AskSaveInstead;
    std::function<QString(const QString& title)> AskFolder;
    std::function<void(const QString& fileName)> OpenMessageFile;
    std::function<QString(const QString& title, const QString& proposed)> AskSaveName;
    std::function<void(const QString& text)> ShowError;

    QTabWidget* Tabs() const { return m_tabs; }
    QTextBrowser* HeaderView() const { return m_header; }
    QTextBrowser* EmptyView() const { return m_empty; }
    QWebEngineView* BodyView() const { return m_body; }
    QPlainTextEdit* TextView() const { return m_text; }
    QPlainTextEdit* HeadersView() const { return m_headers; }
    QMenu* AttachMenu() const { return m_pmAttach; }
    QAction* SaveAction() const { return m_miSaveAttach; }
    QAction* OpenAction() const { return m_miOpen; }
    bool ShowsEmptyView() const;
    // The view the keyboard goes to in this pane: the one on show.
    QWidget* FocusTarget() const;
    QString HeaderHtml() const { return m_headerHtml; }

protected:
    void resizeEvent(QResizeEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void FitHeader();
    // The message as printed: its page with the header block, loaded into a
    // view never shown; `ready` gets the view once it is loaded.
    void RenderForPrint(const std::function<void(QWebEngineView*)>& ready);
    std::shared_ptr<mail::IMailAttach> ActiveAttach() const;

    std::shared_ptr<mail::IMailMessage> m_message;
    int m_activeAttach = -1;
    QString m_headerHtml;
    QTabWidget* m_tabs;
    QStackedWidget* m_htmlStack;
    QTextBrowser* m_empty;
    QTextBrowser* m_header;
    QWebEngineView* m_body;
    QWebEngineProfile* m_profile;
    TMessageSchemeHandler* m_handler;
    QPlainTextEdit* m_text;
    QPlainTextEdit* m_headers;
    QMenu* m_pmAttach;
    QAction* m_miSaveAttach;
    QAction* m_miOpen;
    QAction* m_miFind;
    QAction* m_miPrint;
    QAction* m_miSavePdf;
    QAction* m_miSaveAll;
    QWebEngineView* m_printView = nullptr;
    TMessageSchemeHandler* m_printHandler = nullptr;
    QWidget* m_findBar;
    QLineEdit* m_findEdit;
    QLabel* m_findStatus;
};

} // namespace tessaly::app
