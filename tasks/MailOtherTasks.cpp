#include "tasks/MailOtherTasks.h"

#include "core/DateTime.h"
#include "core/HtmlText.h"
#include "mail/HtmlTokenizer.h"
#include "mail/MimeWriter.h"
#include "mail/XhtmlWriter.h"
#include "mail/ICalendar.h"
#include "mail/MsgWriter.h"
#include "mail/VCard.h"
#include "mail/MailMsgHTML.h"
#include "platform/StagedFile.h"
#include "tasks/MailTemplate.h"
#include "tasks/MailEMLTask.h"
#include "tasks/MailPSTTask.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QLocale>
#include <QSet>
#include <QTimeZone>
#include <cstring>

namespace tessaly::tasks {

// --- one file per message -------------------------------------------------------------

std::unique_ptr<TMailContext> TMailBytesTask::CreateContext()
{
    return std::make_unique<TContext>();
}

int TMailBytesTask::ConvertMail(TMailContext& context, const mail::IMailMessage& message, const QString& path)
{
    auto& own = static_cast<TContext&>(context);
    own.Bytes = Bytes(own, message, path);
    own.Converted = true;
    return trOK;
}

int TMailBytesTask::Commit(TMailContext& context, QString& path)
{
    auto& own = static_cast<TContext&>(context);
    if (!own.Converted)
        return trSkipped;
    const int result = WriteOutput(context, path, own.Bytes);
    own.Bytes.clear();
    return result;
}

QByteArray TMailMSGTask::Bytes(TMailBytesTask::TContext&, const mail::IMailMessage& message, const QString&)
{
    return mail::TMsgWriter(message).SaveToBytes();
}

namespace {

QString AddressList(const mail::IMailRecipientList* list)
{
    QStringList out;
    for (int i = 0; list && i < list->Count(); ++i) {
        const auto recipient = list->GetRecipient(i);
        if (!recipient)
            continue;
        const QString name = recipient->Name().trimmed(), email = recipient->EMail().trimmed();
        out << (name.isEmpty() ? email : email.isEmpty() || name == email ? name : QStringLiteral("%1 <%2>").arg(name, email));
    }
    return out.join(QStringLiteral(", "));
}

} // namespace

QByteArray MessageText(const mail::IMailMessage& message, bool fromHtml)
{
    QString text;
    const auto line = [&](const QString& caption, const QString& value) {
        if (!value.trimmed().isEmpty())
            text += caption + QStringLiteral(": ") + QString(value).replace(QLatin1Char('\n'), QLatin1Char(' ')).remove(QLatin1Char('\r')) + QLatin1Char('\n');
    };
    if (const auto sender = message.Sender()) {
        const QString name = sender->Name().trimmed(), email = sender->EMail().trimmed();
        line(QStringLiteral("From"), name.isEmpty() ? email : email.isEmpty() || name == email ? name : QStringLiteral("%1 <%2>").arg(name, email));
    }
    line(QStringLiteral("To"), AddressList(message.Recipients(mail::mrtTo).get()));
    line(QStringLiteral("Cc"), AddressList(message.Recipients(mail::mrtCC).get()));
    line(QStringLiteral("Bcc"), AddressList(message.Recipients(mail::mrtBCC).get()));
    mail::TDateTime date = message.Date(mail::mdClientSubmit);
    if (date == 0)
        date = message.Date(mail::mdDelivery);
    if (date != 0) {
        const QDateTime when = core::DateTimeToQDateTime(date);
        if (when.isValid())
            line(QStringLiteral("Date"), QLocale::c().toString(when.toUTC(), QStringLiteral("ddd, d MMM yyyy HH:mm:ss")) + QStringLiteral(" +0000"));
    }
    line(QStringLiteral("Subject"), message.Subject());
    const auto attaches = message.Attaches();
    QStringList names;
    for (int i = 0; attaches && i < attaches->Count(); ++i)
        if (const auto attach = attaches->GetAttach(i))
            names << attach->FileName();
    line(QStringLiteral("Attachments"), names.join(QStringLiteral(", ")));
    text += QLatin1Char('\n');
    QString body = fromHtml ? QString() : message.Body(mail::mbtText);
    if (body.trimmed().isEmpty())
        body = core::HtmlToPlainText(message.Body(mail::mbtHTML));
    body.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    text += body;
    if (!text.endsWith(QLatin1Char('\n')))
        text += QLatin1Char('\n');
    return text.toUtf8();
}

QByteArray TMailHTMLTask::PageBytes(const QString& page) const
{
    return page.toUtf8();
}

QByteArray TMailXHTMLTask::PageBytes(const QString& page) const
{
    return mail::HtmlToXhtml(page).toUtf8();
}

namespace {

// Where a page's attachments and pictures are, as the page refers to them:
// saved attachments by their file names beside the page, and, with a
// pictures folder, every other picture by a name in that folder (given as
// the page asks, kept to be written with it).
class TPageFiles : public mail::TMessageHTMLTask {
public:
    TPageFiles(const mail::IMailMessage& message, const QStringList& attachTargets, const QString& pageFolder,
        const QString& picturesFolder)
        : TMessageHTMLTask(message), m_pageFolder(pageFolder), m_picturesFolder(picturesFolder)
    {
        const auto all = AttachLists().front();
        for (size_t i = 0; i < all.size() && qsizetype(i) < attachTargets.size(); ++i)
            m_saved.insert(all[i].get(), attachTargets[qsizetype(i)]);
        for (const auto& list : {Images(), InlineImages()})
            for (const auto& attach : list)
                m_pictures.insert(attach.get());
    }

    QString GetAttachURL(const std::shared_ptr<mail::IMailAttach>& attach, int) const override
    {
        if (!attach)
            return {};
        if (const auto saved = m_saved.constFind(attach.get()); saved != m_saved.constEnd())
            return QDir(m_pageFolder).relativeFilePath(*saved);
        if (m_picturesFolder.isEmpty() || !m_pictures.contains(attach.get()))
            return {};
        if (const auto given = m_given.constFind(attach.get()); given != m_given.constEnd())
            return *given;
        // A name of its own in the folder, whatever the case of the others.
        const QString name = SafeAttachName(attach->FileName(), QStringLiteral("picture"));
        const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
        QString unique = name;
        for (int k = 2; m_names.contains(unique.toLower()); ++k)
            unique = (dot > 0 ? name.left(dot) : name) + QLatin1Char('~') + QString::number(k) + (dot > 0 ? name.mid(dot) : QString());
        m_names.insert(unique.toLower());
        const QString url = m_picturesFolder + QLatin1Char('/') + unique;
        m_given.insert(attach.get(), url);
        Written.push_back({attach, QDir(m_pageFolder).filePath(url)});
        return url;
    }

    // The pictures the page refers to in its folder, and their files.
    mutable std::vector<std::pair<std::shared_ptr<mail::IMailAttach>, QString>> Written;

private:
    QString m_pageFolder, m_picturesFolder;
    QHash<const mail::IMailAttach*, QString> m_saved;
    QSet<const mail::IMailAttach*> m_pictures;
    mutable QHash<const mail::IMailAttach*, QString> m_given;
    mutable QSet<QString> m_names;
};

} // namespace

class TMailHTMLTask::TContext : public TMailBytesTask::TContext {
public:
    std::vector<std::pair<QString, QByteArray>> Pictures; // file, contents
};

std::unique_ptr<TMailContext> TMailHTMLTask::CreateContext()
{
    return std::make_unique<TContext>();
}

QByteArray TMailHTMLTask::Bytes(TMailBytesTask::TContext& context, const mail::IMailMessage& message, const QString& path)
{
    auto& own = static_cast<TContext&>(context);
    const QFileInfo page(path);
    const QString picturesFolder = Properties().PicturesBeside ? page.completeBaseName() + QStringLiteral("_files") : QString();
    const TPageFiles files(message, context.AttachTargets, page.path(), picturesFolder);
    TPageOptions options;
    options.RemotePictures = Properties().RemotePictures;
    options.EmbedPictures = !Properties().PicturesBeside;
    options.LinkAttachments = !context.AttachTargets.isEmpty();
    options.Task = &files;
    const QByteArray bytes = PageBytes(StandaloneHtmlPage(message, options));
    for (const auto& [attach, file] : files.Written) {
        const auto content = attach->Content();
        own.Pictures.emplace_back(file, content ? content->readAll() : QByteArray());
    }
    return bytes;
}

int TMailHTMLTask::Commit(TMailContext& context, QString& path)
{
    auto& own = static_cast<TContext&>(context);
    int result = TMailBytesTask::Commit(context, path);
    if (result != trOK)
        return result;
    // The pictures in their folder, replacing what an earlier run left there
    // (this runs on a worker: the folder is made here, the error goes to the
    // entry).
    for (const auto& [file, data] : own.Pictures) {
        QDir().mkpath(QFileInfo(file).path());
        platform::TStagedFile picture(file);
        QString target = file;
        if (!picture.IsOpen() || picture.Device().write(data) != data.size()
            || picture.Commit(target, {}, true) != platform::lrLinked) {
            if (context.Entry && context.Entry->Error.isEmpty())
                context.Entry->Error = QCoreApplication::translate("TMailHTMLTask", "Can not save the picture %1: %2")
                                           .arg(QDir::toNativeSeparators(file), picture.ErrorString());
            result = trError;
        }
    }
    own.Pictures.clear();
    return result;
}

int TMailVCardTask::ConvertMail(TMailContext& context, const mail::IMailMessage& message, const QString& path)
{
    if (!dynamic_cast<const mail::IMailContact*>(&message))
        return trSkipped;
    return TMailBytesTask::ConvertMail(context, message, path);
}

QByteArray TMailVCardTask::Bytes(TMailBytesTask::TContext&, const mail::IMailMessage& message, const QString&)
{
    return mail::ContactToVCard(dynamic_cast<const mail::IMailContact&>(message), Properties().VCardVersion);
}

int TMailICalTask::ConvertMail(TMailContext& context, const mail::IMailMessage& message, const QString& path)
{
    if (!dynamic_cast<const mail::IMailMeeting*>(&message))
        return trSkipped;
    return TMailBytesTask::ConvertMail(context, message, path);
}

QByteArray TMailICalTask::Bytes(TMailBytesTask::TContext&, const mail::IMailMessage& message, const QString&)
{
    return mail::MeetingToICalendar(message, dynamic_cast<const mail::IMailMeeting&>(message));
}

namespace {

TPagePrinter& PagePrinter()
{
    static TPagePrinter printer;
    return printer;
}

} // namespace

void SetPagePrinter(TPagePrinter printer)
{
    PagePrinter() = std::move(printer);
}

bool HasPagePrinter()
{
    return bool(PagePrinter());
}

QByteArray TMailPDFTask::Print(const QString& html)
{
    if (!HasPagePrinter())
        throw core::ETessalyError(QCoreApplication::translate("CommandLineExport", "PDF files are printed by the window program, which is missing"));
    QString error;
    const QByteArray pdf = PagePrinter()(html, Properties().Paper(), &error);
    if (pdf.isEmpty())
        throw core::ETessalyError(error.isEmpty() ? QCoreApplication::translate("CommandLineExport", "the page could not be printed") : error);
    return pdf;
}

QByteArray TMailPDFTask::Bytes(TMailBytesTask::TContext&, const mail::IMailMessage& message, const QString&)
{
    return Print(StandaloneHtmlPage(message, Properties().RemotePictures));
}

class TMailPDFTask::TContext : public TMailBytesTask::TContext {
public:
    QStringList Pages; // combined: the page of each message, in order
};

std::unique_ptr<TMailContext> TMailPDFTask::CreateContext()
{
    return std::make_unique<TContext>();
}

int TMailPDFTask::ConvertMail(TMailContext& context, const mail::IMailMessage& message, const QString& path)
{
    if (!context.Combined)
        return TMailBytesTask::ConvertMail(context, message, path);
    static_cast<TContext&>(context).Pages << StandaloneHtmlPage(message, Properties().RemotePictures);
    return trOK;
}

int TMailPDFTask::Commit(TMailContext& context, QString& path)
{
    if (!context.Combined)
        return TMailBytesTask::Commit(context, path);
    auto& own = static_cast<TContext&>(context);
    if (own.Pages.isEmpty())
        return trSkipped;
    const int messages = int(own.Pages.size());
    int result = trError;
    QString error;
    try {
        const QByteArray pdf = Print(CombinedHtmlPage(own.Pages));
        own.Pages.clear();
        result = WriteOutput(context, path, pdf);
        if (result != trOK && context.Entry)
            error = context.Entry->Error;
    } catch (const core::ETessalyError& e) {
        error = e.Message();
    }
    if (result != trOK)
        CombinedLost(path, result, error, messages);
    return result;
}

QString TMailPDFTask::CombinedOutput(const TTaskEntry&, const QString&) const
{
    const QString folder = DestinationFolder();
    return folder != Properties().Destination ? Properties().Destination : QDir(folder).filePath(QStringLiteral("EMails.pdf"));
}

QString CombinedHtmlPage(const QStringList& pages)
{
    QString out;
    for (qsizetype i = 0; i < pages.size(); ++i) {
        const QString& page = pages[i];
        // Where the head ends and the body's contents begin and end.
        qsizetype headEnd = -1, bodyStart = -1, bodyEnd = -1;
        QStringList styles;
        mail::THtmlTokenizer tokenizer(page);
        mail::THtmlToken token;
        bool inHead = true;
        while (tokenizer.Next(token)) {
            if (token.Kind == mail::EHtmlToken::StartTag && token.Name == QLatin1String("body") && bodyStart < 0) {
                bodyStart = token.End;
                inHead = false;
                if (headEnd < 0)
                    headEnd = token.Start;
            } else if (token.Kind == mail::EHtmlToken::EndTag && token.Name == QLatin1String("head") && headEnd < 0) {
                headEnd = token.Start;
            } else if (token.Kind == mail::EHtmlToken::EndTag && token.Name == QLatin1String("body")) {
                bodyEnd = token.Start;
            } else if (inHead && token.Kind == mail::EHtmlToken::RawText && token.Name == QLatin1String("style")) {
                styles << QStringLiteral("<style>") + page.mid(token.Start, token.End - token.Start) + QStringLiteral("</style>");
            }
        }
        if (bodyStart < 0)
            bodyStart = headEnd < 0 ? 0 : headEnd;
        if (bodyEnd < bodyStart)
            bodyEnd = page.size();
        if (i == 0) {
            out += headEnd < 0 ? QStringLiteral("<html><head><meta charset=\"utf-8\">") : page.left(headEnd);
            out += QStringLiteral("<style>section.message+section.message{break-before:page;page-break-before:always}</style>"
                                  "</head><body>\r\n");
        }
        out += QStringLiteral("<section class=\"message\">");
        if (i > 0)
            out += styles.join(QString());
        out += page.mid(bodyStart, bodyEnd - bodyStart);
        out += QStringLiteral("</section>\r\n");
    }
    out += QStringLiteral("</body></html>\r\n");
    return out;
}

QByteArray TMailTXTTask::Bytes(TMailBytesTask::TContext&, const mail::IMailMessage& message, const QString&)
{
    return MessageText(message, Properties().TextExportOptions.Has(tetUseHTMLBody));
}

// --- one mbox for the run ---------------------------------------------------------------

QByteArray MBoxEntry(const mail::IMailMessage& message)
{
    mail::TAttachNameGenerator names;
    const mail::TMimeMessage mime(message, names);
    const QByteArray bytes = mime.SaveToBytes(true);
    // The "From " line: the sender's address (no spaces in it) and the date
    // in the form of C's asctime, in UTC.
    QString address;
    if (const auto sender = message.Sender())
        address = sender->EMail().trimmed();
    // Readers take the line as ASCII words: an address that is not one
    // gives way to the name mail programs use for "nobody".
    bool plain = address.contains(QLatin1Char('@'));
    for (const QChar c : address)
        plain = plain && c.unicode() > 32 && c.unicode() < 127;
    if (!plain)
        address = QStringLiteral("MAILER-DAEMON");
    mail::TDateTime date = message.Date(mail::mdDelivery);
    if (date == 0)
        date = message.Date(mail::mdClientSubmit);
    QDateTime when = date != 0 ? core::DateTimeToQDateTime(date).toUTC() : QDateTime();
    if (!when.isValid())
        when = QDateTime::fromSecsSinceEpoch(0, QTimeZone::utc());
    QByteArray entry = "From " + address.toUtf8() + ' '
        + QLocale::c().toString(when, QStringLiteral("ddd MMM d HH:mm:ss yyyy")).toLatin1() + '\n';
    entry.reserve(entry.size() + bytes.size() + bytes.size() / 64 + 2);
    // mboxrd: every line that is ">"s and then "From " gets one more ">".
    // Only lines that begin with ">" or "F" are looked at; the rest is
    // copied a stretch at a time.
    const char* const data = bytes.constData();
    const qsizetype size = bytes.size();
    qsizetype copied = 0;
    for (qsizetype line = 0; line < size;) {
        qsizetype quotes = line;
        while (quotes < size && data[quotes] == '>')
            ++quotes;
        if (size - quotes >= 5 && memcmp(data + quotes, "From ", 5) == 0) {
            entry.append(data + copied, line - copied);
            entry += '>';
            copied = line;
        }
        const void* end = memchr(data + line, '\n', size_t(size - line));
        line = end ? static_cast<const char*>(end) - data + 1 : size;
    }
    entry.append(data + copied, size - copied);
    if (!entry.endsWith('\n'))
        entry += '\n';
    entry += '\n';
    return entry;
}

class TMailMBoxTask::TContext : public TMailContext {
public:
    std::unique_ptr<platform::TStagedFile> File;
    QString Error;
    int Messages = 0;
};

std::unique_ptr<TMailContext> TMailMBoxTask::CreateContext()
{
    return std::make_unique<TContext>();
}

int TMailMBoxTask::ConvertMail(TMailContext& context, const mail::IMailMessage& message, const QString& path)
{
    // Runs convert their messages apart and add them in order; this adds
    // one at once.
    TTaskEntry unnamed;
    return AppendPart(context, MBoxEntry(message), path, context.Entry ? *context.Entry : unnamed);
}

QByteArray TMailMBoxTask::ConvertPart(const mail::IMailMessage& message)
{
    return MBoxEntry(message);
}

int TMailMBoxTask::AppendPart(TMailContext& context, const QByteArray& part, const QString& path, TTaskEntry& entry)
{
    auto& own = static_cast<TContext&>(context);
    if (!own.File) {
        // The whole run (a source folder) goes into one file, written beside
        // its name.
        own.File = std::make_unique<platform::TStagedFile>(path);
        if (!own.File->IsOpen())
            own.Error = own.File->ErrorString();
    }
    if (!own.Error.isEmpty()) {
        entry.Error = own.Error;
        return trError;
    }
    if (own.File->Device().write(part) != part.size()) {
        own.Error = QStringLiteral("Can not write %1: %2").arg(path, own.File->Device().errorString());
        entry.Error = own.Error;
        return trError;
    }
    ++own.Messages;
    return trOK;
}

int TMailMBoxTask::Commit(TMailContext& context, QString& path)
{
    auto& own = static_cast<TContext&>(context);
    if (!own.File || own.Messages == 0)
        return trSkipped;
    QString error;
    const int result = CommitOutput(*own.File, path, error, context.Replace);
    if (result != trOK) {
        CombinedLost(path, result, error, own.Messages);
        if (context.Entry)
            context.Entry->Error = error;
    }
    return result;
}

QString TMailMBoxTask::CombinedOutput(const TTaskEntry& entry, const QString& path) const
{
    if (!Properties().KeepFolderStructure)
        return path;
    const QStringList names = entry.Folders.mid(std::max(0, Properties().KeepFolderLevel));
    if (names.isEmpty())
        return path;
    QDir folder(QFileInfo(path).path());
    for (qsizetype i = 0; i + 1 < names.size(); ++i)
        folder.setPath(folder.filePath(SafeAttachName(names[i], QStringLiteral("folder"))));
    return folder.filePath(SafeAttachName(names.last(), QStringLiteral("folder")) + QStringLiteral(".mbox"));
}

// --- the writer of a format ---------------------------------------------------------------

std::unique_ptr<TMailTask> CreateMailTask(TMailProperties& properties)
{
    switch (properties.ConvertType()) {
    case mctEML:
        return std::make_unique<TMailEMLTask>(properties);
    case mctPST:
        return std::make_unique<TMailPSTTask>(properties);
    case mctMSG:
        return std::make_unique<TMailMSGTask>(properties);
    case mctTXT:
        return std::make_unique<TMailTXTTask>(properties);
    case mctHTML:
        return std::make_unique<TMailHTMLTask>(properties);
    case mctXHTML:
        return std::make_unique<TMailXHTMLTask>(properties);
    case mctVCard:
        return std::make_unique<TMailVCardTask>(properties);
    case mctICal:
        return std::make_unique<TMailICalTask>(properties);
    case mctPDF:
        return std::make_unique<TMailPDFTask>(properties);
    case mctMBox:
        return std::make_unique<TMailMBoxTask>(properties);
    default:
        return nullptr;
    }
}

} // namespace tessaly::tasks
