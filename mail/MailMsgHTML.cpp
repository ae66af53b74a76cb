#include "mail/MailMsgHTML.h"

#include "core/AppConfig.h"
#include "core/Charset.h"
#include "core/DateTime.h"
#include "core/HtmlText.h"
#include "mail/HtmlTokenizer.h"
#include "mail/MailMsgObj.h"
#include "mail/Pictures.h"

#include <QCoreApplication>
#include <QFile>
#include <QLocale>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QUrl>
#include <algorithm>
#include <cmath>

namespace tessaly::mail {

namespace {

const QString CRLF = QStringLiteral("\r\n");

QString StripTags(const QString& html)
{
    static const QRegularExpression Tag(QStringLiteral("<[^>]*>"));
    QString text = html;
    text.remove(Tag);
    text.replace(QStringLiteral("&nbsp;"), QStringLiteral(" "));
    return text.trimmed();
}

// Whether an HTML body shows anything: text, or pictures (an img, a
// background picture, an svg or a video) where there is no text.
bool ShowsSomething(const QString& html)
{
    if (!StripTags(html).isEmpty())
        return true;
    static const QRegularExpression Picture(
        QStringLiteral("<(?:img|svg|video|picture|object|embed)\\b|\\bbackground\\s*=|background(?:-image)?\\s*:[^;>]*url\\("),
        QRegularExpression::CaseInsensitiveOption);
    return Picture.match(html).hasMatch();
}

bool IsImage(const IMailAttach& attach)
{
    if (attach.ContentType().startsWith(QLatin1String("image/")))
        return true;
    static const QStringList Extensions = {QStringLiteral("jpg"), QStringLiteral("jpeg"), QStringLiteral("gif"),
        QStringLiteral("png"), QStringLiteral("bmp"), QStringLiteral("tif"), QStringLiteral("tiff")};
    const QString name = attach.FileName();
    return Extensions.contains(name.mid(name.lastIndexOf(QLatin1Char('.')) + 1).toLower());
}

QByteArray ContentOf(const IMailAttach& attach)
{
    const auto content = attach.Content();
    return content ? content->readAll() : QByteArray();
}

} // namespace

bool TMailHTMLOptions::HasHeaderFields() const
{
    return Sender || Recipient || CC || BCC || Date || Subject || RFCHeaders || DateUTC || SenderIP;
}

TMessageHTMLTask::TMessageHTMLTask(const IMailMessage& message)
{
    const auto attaches = message.Attaches();
    if (!attaches)
        return;
    for (const auto& attach : *attaches) {
        if (!attach)
            continue;
        m_all.push_back(attach);
        if (IsImage(*attach))
            m_images.push_back(attach);
        if (!attach->ContentID().isEmpty())
            m_inline.push_back(attach);
    }
}

QString DefaultMailCSS(double paperWidth)
{
    static const QRegularExpression Macro(QStringLiteral("\\[pagewidth\\]"), QRegularExpression::CaseInsensitiveOption);
    return core::BuiltInResource(QStringLiteral("MAILCSS")).replace(Macro, QString::number(std::lround(paperWidth)));
}

QString TArialReplace::DoReplace(const QRegularExpressionMatch& match)
{
    return match.captured(1) + QStringLiteral("Arial Unicode MS") + match.captured(3);
}

TMailMsgHTML::TMailMsgHTML(const IMailMessage& message, const TMailHTMLOptions& options, const IMailHTMLTask& task)
    : m_message(message), m_options(options), m_task(task)
{
}

QString TMailMsgHTML::Encode(const QString& text)
{
    return core::HtmlCharacterReferences(text, 256, true);
}

QString TMailMsgHTML::RemoveBackslashes(const QString& text)
{
    QString out;
    qsizetype i = 0;
    for (; i + 1 < text.size(); ++i) {
        if (text[i] == QLatin1Char('\\'))
            ++i; // keep what follows
        out += text[i];
    }
    if (i < text.size())
        out += text[i];
    return out;
}

QString TMailMsgHTML::ImageDataURL(const QByteArray& content)
{
    const struct {
        QByteArray magic;
        const char* type;
    } formats[] = {{QByteArray("\xFF\xD8\xFF", 3), "image/jpeg"}, {"GIF8", "image/gif"},
        {QByteArray("\x89PNG", 4), "image/png"}, {"BM", "image/bmp"}, {QByteArray("II*\0", 4), "image/tiff"},
        {QByteArray("MM\0*", 4), "image/tiff"}};
    for (const auto& f : formats)
        if (content.startsWith(f.magic))
            return QStringLiteral("data:%1;base64,").arg(QLatin1String(f.type)) + QString::fromLatin1(content.toBase64());
    // Another format: as PNG, when it is an image at all.
    const QByteArray png = PictureAsPng(content);
    if (png.isEmpty())
        return {};
    return QStringLiteral("data:image/png;base64,") + QString::fromLatin1(png.toBase64());
}

QString TMailMsgHTML::PrepareMeta(const QString& html)
{
    static const QRegularExpression ContentTypeMeta(QStringLiteral("<meta http-equiv=\"Content-Type\"[^>]*>"),
        QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression Fonts(QStringLiteral("([:,\\,][\\s]*)(Arial|Verdana|Helvetica)([\\s]*[\\},\\,])"));
    QString body = html;
    body.remove(ContentTypeMeta);
    QString out;
    qsizetype last = 0;
    for (auto it = Fonts.globalMatch(body); it.hasNext();) {
        const auto match = it.next();
        out += body.mid(last, match.capturedStart() - last) + TArialReplace::DoReplace(match);
        last = match.capturedEnd();
    }
    return out + body.mid(last);
}

// --- head -----------------------------------------------------------------

void TMailMsgHTML::Start()
{
    m_odd = true;
    m_empty = true;
    m_lines << QStringLiteral("<head>")
            << QStringLiteral("<meta http-equiv=\"Content-Type\" content=\"text/html;charset=UTF-8\" />");
    if (m_options.NoStyle) {
        m_lines << QStringLiteral("</head>");
        return;
    }
    m_lines << QStringLiteral("<style type=\"text/css\">");
    QString css;
    if (m_options.UseExternalCSS) {
        QFile file(m_options.ExternalCSSFile);
        if (file.open(QIODevice::ReadOnly))
            css = QString::fromUtf8(file.readAll());
    } else {
        QFile user(QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) + QStringLiteral("/default.css"));
        if (user.open(QIODevice::ReadOnly))
            css = QString::fromUtf8(user.readAll());
        else
            css = DefaultMailCSS(m_options.PaperWidth);
    }
    m_lines << css << QStringLiteral("</style>") << QStringLiteral("</head>");
}

// --- header table -----------------------------------------------------------

QString TMailMsgHTML::NextRowId()
{
    const QString id = m_odd ? QStringLiteral("header_row_odd") : QStringLiteral("header_row_even");
    m_odd = !m_odd;
    return id;
}

QString TMailMsgHTML::CaptionCell(const QString& field) const
{
    return QStringLiteral("<td id=%1_caption nowrap width=15%>").arg(field);
}

QString TMailMsgHTML::DateText(TDateTime date) const
{
    if (!(date > 0))
        return {};
    if (!m_options.DateUTC)
        return core::FormatDateTime(date);
    const QDateTime utc = core::DateTimeToQDateTime(date).toUTC();
    return core::FormatDateTime(core::QDateTimeToDateTime(QDateTime(utc.date(), utc.time()))) + QStringLiteral(" UTC");
}

QString TMailMsgHTML::LinkURL(const QString& url) const
{
    QString full = url;
    if (!m_options.HTMLOutput && !url.startsWith(QLatin1String("data:")))
        full = QStringLiteral("file://") + url;
    return QString::fromLatin1(QUrl::toPercentEncoding(full, "/:.-_~")).replace(QLatin1Char('+'), QStringLiteral("%20"));
}

void TMailMsgHTML::WriteSenderRow(const std::shared_ptr<IMailRecipient>& sender, bool withIP)
{
    QString line = QStringLiteral("<tr id=%1>").arg(NextRowId()) + CaptionCell(QStringLiteral("from"))
        + QStringLiteral("<b>") + QCoreApplication::translate("TMailMsgHTML", "From")
        + QStringLiteral(": </b></td><td id=from_text><a href=\"mailto:")
        + Encode(sender ? sender->EMail() : QString()) + QStringLiteral("\">")
        + Encode(sender ? sender->Caption() : QString()) + QStringLiteral("</a>");
    if (withIP && m_options.SenderIP) {
        const QString ip = m_message.SenderIP();
        if (!ip.isEmpty())
            line += QStringLiteral(" [") + Encode(ip) + QLatin1Char(']');
    }
    m_lines << line + QStringLiteral("</td></tr>");
    if (sender && !sender->Caption().isEmpty())
        m_empty = false;
}

void TMailMsgHTML::WriteRecipientRows(
    const QString& field, const QString& caption, bool showEmpty, const std::shared_ptr<IMailRecipientList>& list)
{
    if (!list || (list->Count() == 0 && !showEmpty))
        return;
    const QString row = NextRowId();
    QString line = QStringLiteral("<tr id=%1>").arg(row) + CaptionCell(field) + QStringLiteral("<b>")
        + RemoveBackslashes(caption) + QStringLiteral(": </b></td>");
    if (list->Count() == 0) {
        m_lines << line + QStringLiteral("<td id=empty_cell>&nbsp;</td></tr>");
        return;
    }
    for (int i = 0; i < list->Count(); ++i) {
        const auto recipient = list->GetRecipient(i);
        const QString address = Encode(recipient ? recipient->EMail() : QString());
        const QString text = Encode(RemoveBackslashes(recipient ? recipient->Caption() : QString()));
        if (i == 0)
            line += QStringLiteral("<td id=to_text nowrap><a href=\"mailto:") + address + QStringLiteral("\">") + text
                + QStringLiteral("</a></td></tr>");
        else
            line += QStringLiteral("<tr id=%1><td id=%2_caption /><td id=%2_text nowrap><a href=\"mailto:").arg(row, field)
                + address + QStringLiteral("\">") + text + QStringLiteral("</a></td></tr>");
    }
    m_lines << line;
    m_empty = false;
}

void TMailMsgHTML::WriteTextRow(const QString& field, const QString& caption, const QString& text)
{
    m_lines << QStringLiteral("<tr id=%1>").arg(NextRowId()) + CaptionCell(field) + QStringLiteral("<b>") + caption
            + QStringLiteral(": </b></td><td>") + text + QStringLiteral("</td></tr>");
    if (!text.isEmpty())
        m_empty = false;
}

void TMailMsgHTML::WriteAttachRows(const std::vector<std::shared_ptr<IMailAttach>>& list, const QString& rowId, int& index)
{
    for (const auto& attach : list) {
        QString start, end;
        if (m_options.AttachSave) {
            const QString url = m_task.GetAttachURL(attach, index);
            if (!url.isEmpty()) {
                start = QStringLiteral("<a href=\"") + LinkURL(url) + QStringLiteral("\">");
                end = QStringLiteral("</a>");
            }
        }
        const QString name = Encode(attach->FileName());
        if (m_attachCaption) {
            m_lines << QStringLiteral("<tr id=%1><td id=attach_caption><b>").arg(rowId)
                    + QCoreApplication::translate("TMailMsgHTML", "Attachments") + QStringLiteral(": </b></td><td>") + start
                    + name + end + QStringLiteral("</td></tr>");
            m_attachCaption = false;
        } else {
            m_lines << QStringLiteral("<tr id=%1><td id=attach_caption /><td id=attach_text>").arg(rowId) + start + name + end
                    + QStringLiteral("</td></tr>");
        }
        m_empty = false;
        ++index;
    }
}

void TMailMsgHTML::WriteMeetingRows(const IMailMeeting& meeting, bool inHeader)
{
    WriteSenderRow(m_message.Sender(), false);
    WriteRecipientRows(QStringLiteral("to"), QCoreApplication::translate("TMailMsgHTML", "Required"), inHeader, m_message.Recipients(mrtTo));
    WriteRecipientRows(QStringLiteral("cc"), QCoreApplication::translate("TMailMsgHTML", "Optional"), false, m_message.Recipients(mrtCC));
    WriteRecipientRows(QStringLiteral("bcc"), QCoreApplication::translate("TMailMsgHTML", "Resource"), false, m_message.Recipients(mrtBCC));
    if (inHeader)
        WriteTextRow(QStringLiteral("subject"), QCoreApplication::translate("TMailMsgHTML", "Subject"), Encode(m_message.Subject()));
    if (inHeader || !meeting.Location().isEmpty())
        WriteTextRow(QStringLiteral("subject"), QCoreApplication::translate("TMailMsgHTML", "Location"), Encode(meeting.Location()));
    QString when = DateText(meeting.AppoitmentStart());
    if (meeting.AppoitmentEnd() > 0)
        when += QStringLiteral(" - ") + DateText(meeting.AppoitmentEnd());
    if (inHeader || !when.isEmpty())
        WriteTextRow(QStringLiteral("date"), QCoreApplication::translate("TMailMsgHTML", "When"), when);
}

namespace {

// A web page as a link when it is an http or https address (a bare
// "www." one taken as http); anything else stays text.
QString WebPageHtml(const QString& page)
{
    QString address = page;
    if (address.startsWith(QLatin1String("www."), Qt::CaseInsensitive))
        address.prepend(QLatin1String("http://"));
    const QUrl url(address, QUrl::StrictMode);
    const QString scheme = url.scheme().toLower();
    if (!url.isValid() || url.host().isEmpty() || (scheme != QLatin1String("http") && scheme != QLatin1String("https")))
        return TMailMsgHTML::Encode(page);
    return QStringLiteral("<a href=\"") + TMailMsgHTML::Encode(url.toString(QUrl::FullyEncoded)) + QStringLiteral("\">")
        + TMailMsgHTML::Encode(page) + QStringLiteral("</a>");
}

// The picture of a card, at most this many pixels wide and high.
constexpr double CardPictureSize = 160;

} // namespace

void TMailMsgHTML::WriteContactCard(const IMailContact& contact)
{
    const auto text = [&contact](int field) {
        const QVariant value = contact.GetField(field);
        return value.typeId() == QMetaType::QString ? value.toString().trimmed() : QString();
    };
    struct TRow {
        QString field, caption, html;
    };
    std::vector<TRow> rows;
    const auto add = [&rows](const char* field, const char* caption, const QString& html) {
        if (!html.isEmpty())
            rows.push_back({QLatin1String(field), QCoreApplication::translate("TMailMsgHTML", caption), html});
    };
    QString name = text(mcfFullName);
    if (name.isEmpty())
        name = m_message.Subject().trimmed();
    add("name", QT_TRANSLATE_NOOP("TMailMsgHTML", "Name"), Encode(name));
    add("company", QT_TRANSLATE_NOOP("TMailMsgHTML", "Company"), Encode(text(mcfCompany)));
    add("jobtitle", QT_TRANSLATE_NOOP("TMailMsgHTML", "Job title"), Encode(text(mcfJobTitle)));
    add("department", QT_TRANSLATE_NOOP("TMailMsgHTML", "Department"), Encode(text(mcfDepartment)));
    QStringList emails;
    for (const QString& address : text(mcfEMails).split(QLatin1Char(','), Qt::SkipEmptyParts))
        emails << QStringLiteral("<a href=\"mailto:") + Encode(address.trimmed()) + QStringLiteral("\">")
                + Encode(address.trimmed()) + QStringLiteral("</a>");
    add("email", QT_TRANSLATE_NOOP("TMailMsgHTML", "E-mail"), emails.join(QStringLiteral("<br>")));
    add("businessphone", QT_TRANSLATE_NOOP("TMailMsgHTML", "Business phone"), Encode(text(mcfBusinessPhone)));
    add("homephone", QT_TRANSLATE_NOOP("TMailMsgHTML", "Home phone"), Encode(text(mcfHomePhone)));
    add("mobilephone", QT_TRANSLATE_NOOP("TMailMsgHTML", "Mobile phone"), Encode(text(mcfMobilePhone)));
    add("businessfax", QT_TRANSLATE_NOOP("TMailMsgHTML", "Business fax"), Encode(text(mcfBusinessFax)));
    const QString businessAddress = text(mcfBusinessAddress);
    add("businessaddress", QT_TRANSLATE_NOOP("TMailMsgHTML", "Business address"), TextLinesToHtml(businessAddress));
    // The mailing address is often a copy of the business address.
    if (text(mcfPostalAddress) != businessAddress)
        add("address", QT_TRANSLATE_NOOP("TMailMsgHTML", "Address"), TextLinesToHtml(text(mcfPostalAddress)));
    const QDateTime birthday = contact.GetField(mcfBirthday).toDateTime();
    if (birthday.isValid())
        add("birthday", QT_TRANSLATE_NOOP("TMailMsgHTML", "Birthday"), Encode(QLocale().toString(birthday.date(), QLocale::ShortFormat)));
    if (const QString page = text(mcfWebPage); !page.isEmpty())
        add("webpage", QT_TRANSLATE_NOOP("TMailMsgHTML", "Web page"), WebPageHtml(page));
    add("notes", QT_TRANSLATE_NOOP("TMailMsgHTML", "Notes"), TextLinesToHtml(text(mcfNotes)));

    QString picture;
    const QVariant pictureField = contact.GetField(mcfPicture);
    const QByteArray pictureBytes = pictureField.typeId() == QMetaType::QByteArray ? pictureField.toByteArray() : QByteArray();
    if (const QString source = ImageDataURL(pictureBytes); !source.isEmpty()) {
        QString size;
        if (const QSize image = PictureSize(pictureBytes); image.isValid()) {
            const double scale = std::min({1.0, CardPictureSize / image.width(), CardPictureSize / image.height()});
            size = QStringLiteral("width=%1 height=%2 ")
                       .arg(std::max(1L, std::lround(image.width() * scale)))
                       .arg(std::max(1L, std::lround(image.height() * scale)));
        }
        picture = QStringLiteral("<img class=contact_picture ") + size + QStringLiteral("src=\"") + source
            + QStringLiteral("\">");
    }
    if (rows.empty() && picture.isEmpty())
        return;
    m_lines << QStringLiteral("<table id=header_table class=contact_card>");
    if (rows.empty())
        rows.push_back({QStringLiteral("name"), QCoreApplication::translate("TMailMsgHTML", "Name"), QString()});
    for (size_t i = 0; i < rows.size(); ++i) {
        QString line = QStringLiteral("<tr id=%1>").arg(NextRowId()) + CaptionCell(rows[i].field) + QStringLiteral("<b>")
            + rows[i].caption + QStringLiteral(": </b></td><td id=%1_text>").arg(rows[i].field) + rows[i].html
            + QStringLiteral("</td>");
        if (i == 0 && !picture.isEmpty())
            line += QStringLiteral("<td rowspan=%1 valign=top width=1>").arg(rows.size()) + picture + QStringLiteral("</td>");
        m_lines << line + QStringLiteral("</tr>");
    }
    m_lines << QStringLiteral("</table>");
    m_empty = false;
}

void TMailMsgHTML::CreateHeader()
{
    // A contact is its card: it has no sender, recipients or date to show.
    if (const auto* contact = dynamic_cast<const IMailContact*>(&m_message)) {
        WriteContactCard(*contact);
        return;
    }
    const auto* meeting = dynamic_cast<const IMailMeeting*>(&m_message);
    if (!m_options.HasHeaderFields()) {
        // The preview shows the subject itself.
        if (meeting) {
            m_lines << QStringLiteral("<table id=header_table class=meeting_card>");
            WriteMeetingRows(*meeting, false);
            m_lines << QStringLiteral("</table>");
        }
        return;
    }
    m_lines << QStringLiteral("<table id=header_table>");
    if (meeting) {
        WriteMeetingRows(*meeting, true);
    } else {
        if (m_options.Sender)
            WriteSenderRow(m_message.Sender(), true);
        if (m_options.Recipient)
            WriteRecipientRows(QStringLiteral("to"), QCoreApplication::translate("TMailMsgHTML", "To"), true, m_message.Recipients(mrtTo));
        if (m_options.CC)
            WriteRecipientRows(QStringLiteral("cc"), QCoreApplication::translate("TMailMsgHTML", "CC"), false, m_message.Recipients(mrtCC));
        if (m_options.BCC)
            WriteRecipientRows(QStringLiteral("bcc"), QCoreApplication::translate("TMailMsgHTML", "BCC"), false, m_message.Recipients(mrtBCC));
        if (m_options.Date)
            WriteTextRow(QStringLiteral("date"), QCoreApplication::translate("TMailMsgHTML", "Date"), DateText(m_message.Date(mdClientSubmit)));
        if (m_options.Subject)
            WriteTextRow(QStringLiteral("subject"), QCoreApplication::translate("TMailMsgHTML", "Subject"), Encode(m_message.Subject()));
    }
    const auto lists = m_task.AttachLists();
    const bool anyAttachments = std::any_of(lists.begin(), lists.end(), [](const auto& l) { return !l.empty(); });
    if (m_options.AttachInfo && anyAttachments) {
        m_attachCaption = true;
        const QString row = NextRowId();
        int index = 0;
        for (const auto& list : lists)
            WriteAttachRows(list, row, index);
    }
    if (m_options.RFCHeaders) {
        QString headers = Encode(m_message.Headers());
        headers.replace(QStringLiteral("\r\n"), QStringLiteral("&#13;&#10;"));
        headers.replace(QStringLiteral("&#13;&#10;"), QStringLiteral("<br>") + CRLF);
        m_lines << QStringLiteral("<tr><td align=right valign=top><b>") + QCoreApplication::translate("TMailMsgHTML", "Headers")
                + QStringLiteral(": </b></td><td>") + headers
                + QStringLiteral("</td></tr>");
        m_empty = false;
    }
    m_lines << QStringLiteral("</table>");
}

// --- images -------------------------------------------------------------------

void TMailMsgHTML::EmbedImages()
{
    const auto images = m_task.Images();
    if (!m_options.EmbedImages || images.empty())
        return;
    m_lines << QStringLiteral("<table id=image_table>");
    int index = 0;
    for (const auto& attach : images) {
        const QByteArray content = ContentOf(*attach);
        QString size;
        if (const QSize image = PictureSize(content); image.isValid()) {
            double scale = 1.0;
            if (m_options.FitImages)
                scale = std::min({1.0, m_options.PaperWidth / image.width(), m_options.PaperHeight / image.height()});
            size = QStringLiteral("width=%1 height=%2 ")
                       .arg(std::lround(image.width() * scale))
                       .arg(std::lround(image.height() * scale));
        }
        QString source = m_options.HTMLEmbedImages ? ImageDataURL(content) : QString();
        if (source.isEmpty())
            source = LinkURL(m_task.GetAttachURL(attach, index));
        m_lines << QStringLiteral("<tr><td><img class=mail_image ") + size + QStringLiteral("src=\"") + source
                + QStringLiteral("\"></td></tr>");
        ++index;
    }
    m_lines << QStringLiteral("</table>");
    m_empty = false;
}

// --- body -----------------------------------------------------------------

QString TMailMsgHTML::TextLinesToHtml(const QString& text) const
{
    static const QRegularExpression LineEnd(QStringLiteral("\r\n|\r|\n"));
    QStringList lines = text.split(LineEnd);
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast(); // a text ending in a line break has no line after it
    QStringList out;
    qsizetype blankRun = 0;
    const auto endRun = [&](bool atEnd) {
        if (blankRun > 1000 || (atEnd && blankRun > 0))
            out.resize(out.size() - blankRun + 1);
        blankRun = 0;
    };
    for (const QString& line : lines) {
        const bool blank = std::all_of(line.begin(), line.end(), [](QChar c) { return c == QLatin1Char(' ') || c == QLatin1Char('\t'); });
        if (blank) {
            ++blankRun;
        } else {
            endRun(false);
        }
        out << Encode(line);
    }
    endRun(true);
    return out.join(QStringLiteral("<br>") + CRLF);
}

QString TMailMsgHTML::ResolveInlineImages(QString body) const
{
    int index = 0;
    for (const auto& attach : m_task.InlineImages()) {
        QString url = m_options.HTMLEmbedImages ? ImageDataURL(ContentOf(*attach)) : QString();
        if (url.isEmpty()) {
            const QString saved = m_task.GetAttachURL(attach, index);
            url = saved.isEmpty() ? QString() : LinkURL(saved);
        }
        ++index;
        if (url.isEmpty())
            continue; // nothing to point at: the reference stays for the viewer to serve
        QString id = attach->ContentID().trimmed();
        if (id.startsWith(QLatin1Char('<')) && id.endsWith(QLatin1Char('>')))
            id = id.mid(1, id.size() - 2);
        if (!id.isEmpty())
            body.replace(QStringLiteral("cid:") + id, url);
        body.replace(QStringLiteral("\\htmlbase ") + attach->FileName(), url);
    }
    return body;
}

namespace {

// An address in text ends at a blank, "<" or '"', or at an encoded bracket,
// quote or no-break space, which in the text stood around it.
qsizetype AddressEnd(QStringView text, qsizetype from)
{
    static const QLatin1String Stops[] = {QLatin1String("&gt;"), QLatin1String("&lt;"), QLatin1String("&quot;"),
        QLatin1String("&nbsp;")};
    qsizetype end = from;
    for (; end < text.size(); ++end) {
        if (text[end] == QLatin1Char('<') || text[end] == QLatin1Char('"') || text[end].isSpace())
            break;
        if (text[end] == QLatin1Char('&')
            && std::any_of(std::begin(Stops), std::end(Stops), [&](QLatin1String s) { return text.mid(end).startsWith(s); }))
            break;
    }
    return end;
}

// Links the http:// and https:// addresses of one run of text. The text is
// HTML already (references encoded): the anchor shows it as it stands, and
// its href is the address decoded and encoded again for a quoted value.
QString LinkAddressesInText(QStringView text)
{
    QString out;
    qsizetype done = 0;
    qsizetype from = 0;
    while ((from = text.indexOf(QLatin1String("http"), from, Qt::CaseInsensitive)) >= 0) {
        const QStringView rest = text.mid(from + 4);
        const qsizetype schemeEnd = rest.startsWith(QLatin1String("://")) ? from + 7
            : rest.startsWith(QLatin1String("s://"), Qt::CaseInsensitive) ? from + 8
                                                                            : -1;
        const QChar before = from > 0 ? text[from - 1] : QChar(QLatin1Char(' '));
        if (schemeEnd < 0 || before == QLatin1Char('"') || before == QLatin1Char('\'') || before == QLatin1Char('=')
            || before == QLatin1Char('/') || before.isLetterOrNumber()) {
            from += 4;
            continue;
        }
        const qsizetype end = AddressEnd(text, from);
        const QStringView shown = text.mid(from, end - from);
        QString href = core::HtmlCharacterReferences(core::HtmlDecode(shown.toString()), 256, true);
        href.replace(QLatin1Char('\''), QLatin1String("&#39;"));
        out += text.mid(done, from - done);
        out += QLatin1String("<a href=\"") + href + QLatin1String("\">");
        out += shown;
        out += QLatin1String("</a>");
        done = from = end;
    }
    out += text.mid(done);
    return out;
}

// Wraps the addresses that stand in the body's text in anchors; tags, the
// contents of raw-text elements (style, script...) and of anchors stay as
// they are.
QString LinkBareAddresses(const QString& body)
{
    QString out;
    out.reserve(body.size());
    THtmlTokenizer tokenizer(body);
    THtmlToken token;
    bool inAnchor = false;
    while (tokenizer.Next(token)) {
        const QStringView source = QStringView(body).mid(token.Start, token.End - token.Start);
        if (token.Name == QLatin1String("a") && token.Kind == EHtmlToken::StartTag)
            inAnchor = true;
        else if (token.Name == QLatin1String("a") && token.Kind == EHtmlToken::EndTag)
            inAnchor = false;
        if (token.Kind == EHtmlToken::Text && !inAnchor)
            out += LinkAddressesInText(source);
        else
            out += source;
    }
    return out;
}

} // namespace

void TMailMsgHTML::CreateBody()
{
    // A contact's body is its notes, which its card shows.
    if (!m_options.Body || dynamic_cast<const IMailContact*>(&m_message))
        return;
    if (m_options.HasHeaderFields())
        m_lines << QStringLiteral("<hr>");
    QString body;
    const QString html = m_message.Body(mbtHTML);
    if (html.isEmpty()) {
        if (dynamic_cast<const IMailMessage4*>(&m_message)) {
            body = TextLinesToHtml(m_message.Body(mbtText));
        } else {
            body = Encode(m_message.Body(mbtText));
            body.replace(CRLF, QStringLiteral("<br>") + CRLF);
        }
        if (m_empty)
            m_empty = StripTags(body).isEmpty();
    } else {
        body = html;
        // What the header block wrote counts, and so do pictures.
        if (m_empty)
            m_empty = !ShowsSomething(body);
        if (body.toLower().contains(QLatin1String("<meta")))
            body = PrepareMeta(body);
        if (body.trimmed().endsWith(QLatin1String("</html"), Qt::CaseInsensitive))
            body = body.trimmed() + QLatin1Char('>');
    }
    if (m_options.HTMLOutput) {
        body = LinkBareAddresses(body);
        body = ResolveInlineImages(body);
    } else if (!m_options.BreakPattern.isEmpty()) {
        const QRegularExpression pattern(QLatin1Char('(') + m_options.BreakPattern + QLatin1Char(')'));
        const QString pageBreak = QStringLiteral("<div style=\"page-break-before: always\" />");
        if (pattern.isValid())
            body.replace(pattern, m_options.BreakBefore ? pageBreak + QStringLiteral("\\1") : QStringLiteral("\\1") + pageBreak);
    }
    m_lines << QStringLiteral("<div id=msg_body>") << body << QStringLiteral("</div>");
}

QString TMailMsgHTML::Finish() const
{
    return m_empty ? QString() : m_lines.join(CRLF);
}

QString TMailMsgHTML::Render(const IMailMessage& message, const TMailHTMLOptions& options, const IMailHTMLTask& task)
{
    TMailMsgHTML html(message, options, task);
    html.Start();
    html.CreateHeader();
    html.EmbedImages();
    html.CreateBody();
    return html.Finish();
}

QString DeclaredCharset(const QString& html)
{
    static const QRegularExpression Meta(
        QStringLiteral("<meta(?!\\s*(?:name|value)\\s*=)[^>]*?charset\\s*=[\\s\"\\']*([^\\s\"\\'/>]*)"),
        QRegularExpression::CaseInsensitiveOption);
    return Meta.match(html).captured(1);
}

QString HeaderHtmlCharset(const QString& headers)
{
    static const QRegularExpression ContentType(QStringLiteral("Content-type: text/html.*charset=\"(.*?)\""),
        QRegularExpression::CaseInsensitiveOption);
    return ContentType.match(headers).captured(1);
}

QString ConvertBodyCharset(const QString& charset, const QString& body)
{
    if (charset.isEmpty() || !core::IsKnownCharset(charset))
        return body;
    // A body that came through as bytes (one character per byte) is decoded
    // in its charset; text that is already Unicode stays as it is.
    for (const QChar c : body)
        if (c.unicode() > 0xFF)
            return body;
    return core::DecodeCharset(body.toLatin1(), charset);
}

QString RepairBodyCharset(const IMailMessage& message, const QString& html)
{
    if (!DeclaredCharset(message.Body(mbtHTML)).isEmpty())
        return html;
    const QString charset = HeaderHtmlCharset(message.Headers());
    if (charset.isEmpty() || charset.compare(QLatin1String("utf-8"), Qt::CaseInsensitive) == 0)
        return html;
    return ConvertBodyCharset(charset, html);
}

} // namespace tessaly::mail
