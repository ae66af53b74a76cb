#pragma once

// Writers of the formats besides EML and the data file: an Outlook .msg
// file per message, one mbox file for the run, a text file per message;
// and the writer a run of a given format takes.

#include "tasks/MailTask.h"

#include <QByteArray>
#include <functional>
#include <memory>

namespace tessaly::tasks {

// One file per message whose bytes are made while the message converts and
// written when it is committed (beside the target, linked in when whole).
class TMailBytesTask : public TMailTask {
public:
    using TMailTask::TMailTask;

    class TContext : public TMailContext {
    public:
        QByteArray Bytes;
        bool Converted = false;
    };

    std::unique_ptr<TMailContext> CreateContext() override;
    int ConvertMail(TMailContext& context, const mail::IMailMessage& message, const QString& path) override;
    int Commit(TMailContext& context, QString& path) override;

protected:
    // The file's bytes for the message; throws core::ETessalyError with the
    // reason when it cannot be made.
    virtual QByteArray Bytes(TContext& context, const mail::IMailMessage& message, const QString& path) = 0;
};

// An Outlook .msg file per message ([MS-OXMSG]): attached messages stay
// attached messages, contacts and meetings keep their properties.
class TMailMSGTask : public TMailBytesTask {
public:
    using TMailBytesTask::TMailBytesTask;

protected:
    QByteArray Bytes(TMailBytesTask::TContext& context, const mail::IMailMessage& message, const QString& path) override;
};

// The header lines and the text body of each message (the text made from
// the HTML body when there is no text body, or when the options ask for
// it), in UTF-8.
class TMailTXTTask : public TMailBytesTask {
public:
    using TMailBytesTask::TMailBytesTask;

protected:
    QByteArray Bytes(TMailBytesTask::TContext& context, const mail::IMailMessage& message, const QString& path) override;
};

// A web page per message: the header block and the body as the preview
// shows them, the message's pictures inside the page as data URLs or, when
// the options ask, saved in a folder beside it ("NAME_files"); saved
// attachments linked; scripts and every reference to another host taken out
// (pictures kept when the options ask for them).
class TMailHTMLTask : public TMailBytesTask {
public:
    using TMailBytesTask::TMailBytesTask;

    class TContext;
    std::unique_ptr<TMailContext> CreateContext() override;
    int Commit(TMailContext& context, QString& path) override;

protected:
    // The page, and the pictures to write beside it.
    QByteArray Bytes(TMailBytesTask::TContext& context, const mail::IMailMessage& message, const QString& path) override;
    // The file's bytes for the page.
    virtual QByteArray PageBytes(const QString& page) const;
};

// The same page as XHTML: well-formed XML that browsers read as HTML too.
class TMailXHTMLTask : public TMailHTMLTask {
public:
    using TMailHTMLTask::TMailHTMLTask;

protected:
    QByteArray PageBytes(const QString& page) const override;
};

// A vCard 3.0 per contact; items that are no contacts are left out (and
// counted as skipped).
class TMailVCardTask : public TMailBytesTask {
public:
    using TMailBytesTask::TMailBytesTask;
    int ConvertMail(TMailContext& context, const mail::IMailMessage& message, const QString& path) override;

protected:
    QByteArray Bytes(TMailBytesTask::TContext& context, const mail::IMailMessage& message, const QString& path) override;
};

// An iCalendar file per meeting or appointment; other items are left out
// (and counted as skipped).
class TMailICalTask : public TMailBytesTask {
public:
    using TMailBytesTask::TMailBytesTask;
    int ConvertMail(TMailContext& context, const mail::IMailMessage& message, const QString& path) override;

protected:
    QByteArray Bytes(TMailBytesTask::TContext& context, const mail::IMailMessage& message, const QString& path) override;
};

// Prints a page to PDF on the paper given; empty with the reason in `error`
// when it cannot. Printing takes a browser engine, which only the window
// program loads: it installs the printer; without one there are no PDFs.
using TPagePrinter = std::function<QByteArray(const QString& html, const TPaperProperties& paper, QString* error)>;
void SetPagePrinter(TPagePrinter printer);
bool HasPagePrinter();

// A PDF per message: the web page of the HTML writer, printed on the paper
// of the options (size, orientation by width and height, margins). One
// message at a time, on the thread the printer lives on. Combining files,
// the run is one PDF (the destination when it names a .pdf file, else
// "EMails.pdf" in it), each message from a new page.
class TMailPDFTask : public TMailBytesTask {
public:
    using TMailBytesTask::TMailBytesTask;

    class TContext;
    std::unique_ptr<TMailContext> CreateContext() override;
    int ConvertMail(TMailContext& context, const mail::IMailMessage& message, const QString& path) override;
    int Commit(TMailContext& context, QString& path) override;

protected:
    QByteArray Bytes(TMailBytesTask::TContext& context, const mail::IMailMessage& message, const QString& path) override;
    bool RunsInParallel() const override { return false; }
    QString CombinedOutput(const TTaskEntry& entry, const QString& path) const override;

private:
    QByteArray Print(const QString& html);
};

// Pages of the HTML writer as one page: the head of the first (its policy
// and style), then each page's style and body, each from a new page when
// printed.
QString CombinedHtmlPage(const QStringList& pages);

// The text file's contents for a message.
QByteArray MessageText(const mail::IMailMessage& message, bool fromHtml);

// One mbox file for the run, or, keeping the folder structure, one per
// source folder ("Inbox.mbox", its sub-folders' files in "Inbox/") (mboxrd:
// a "From " line before each message, lines of the message that begin with
// "From " or ">From " quoted with one more ">"), as mail programs and
// Python's mailbox module read it.
class TMailMBoxTask : public TMailTask {
public:
    using TMailTask::TMailTask;

    class TContext;
    std::unique_ptr<TMailContext> CreateContext() override;
    int ConvertMail(TMailContext& context, const mail::IMailMessage& message, const QString& path) override;
    int Commit(TMailContext& context, QString& path) override;

protected:
    QString CombinedOutput(const TTaskEntry& entry, const QString& path) const override;
    // Each message is made into its entry on a worker, the entries written
    // in run order.
    bool ConvertsApart() const override { return true; }
    QByteArray ConvertPart(const mail::IMailMessage& message) override;
    int AppendPart(TMailContext& context, const QByteArray& part, const QString& path, TTaskEntry& entry) override;
};

// A message as one entry of an mbox file: the "From " line, the message
// with LF line ends and its "From " lines quoted, a blank line.
QByteArray MBoxEntry(const mail::IMailMessage& message);

// The writer of the properties' format; null for a format no writer
// handles yet.
std::unique_ptr<TMailTask> CreateMailTask(TMailProperties& properties);

} // namespace tessaly::tasks
