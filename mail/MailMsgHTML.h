#pragma once

// The HTML rendering of one message: a head with the style block, a header
// table, an optional image table and the body. The caller wraps the output
// as the target format needs (no html or body element is written here).

#include "mail/MailContact.h"
#include "mail/MailMsgIntf.h"

#include <QRegularExpressionMatch>
#include <QStringList>
#include <vector>

namespace tessaly::mail {

// What the rendering takes from the export options.
struct TMailHTMLOptions {
    // Fields shown.
    bool Sender = true, Recipient = true, CC = false, BCC = false, Date = true, Subject = true, Body = true;
    bool RFCHeaders = false, DateUTC = false, SenderIP = false;
    // Attachments: written out (links), listed, images shown in a table.
    bool AttachSave = false, AttachInfo = true, EmbedImages = true, FitImages = true;
    // Images as data URLs instead of links.
    bool HTMLEmbedImages = false;
    // The output is HTML or XHTML itself (links stay relative, bare links
    // become anchors, inline images are resolved).
    bool HTMLOutput = true;
    // TIFF output takes no style block.
    bool NoStyle = false;
    // A style sheet of the user's instead of the built-in one.
    bool UseExternalCSS = false;
    QString ExternalCSSFile;
    // The paper, in pixels.
    double PaperWidth = 794;
    double PaperHeight = 1123;
    // Page breaks around matches of this pattern (other outputs than HTML).
    QString BreakPattern;
    bool BreakBefore = true;

    // Any field besides the body: the header table and the rule are written.
    bool HasHeaderFields() const;
};

// What the rendering asks of the running export: which attachments to list,
// which images to show and inline, and where an attachment was written.
class IMailHTMLTask {
public:
    virtual ~IMailHTMLTask() = default;
    virtual std::vector<std::vector<std::shared_ptr<IMailAttach>>> AttachLists() const = 0;
    virtual std::vector<std::shared_ptr<IMailAttach>> Images() const = 0;
    virtual std::vector<std::shared_ptr<IMailAttach>> InlineImages() const = 0;
    // Empty when the attachment was not written.
    virtual QString GetAttachURL(const std::shared_ptr<IMailAttach>& attach, int index) const = 0;
};

// Without an export: every attachment is listed, images are those with an
// image type, inline images those with a content id; nothing is written.
class TMessageHTMLTask : public IMailHTMLTask {
public:
    explicit TMessageHTMLTask(const IMailMessage& message);
    std::vector<std::vector<std::shared_ptr<IMailAttach>>> AttachLists() const override { return {m_all}; }
    std::vector<std::shared_ptr<IMailAttach>> Images() const override { return m_images; }
    std::vector<std::shared_ptr<IMailAttach>> InlineImages() const override { return m_inline; }
    QString GetAttachURL(const std::shared_ptr<IMailAttach>&, int) const override { return {}; }

private:
    std::vector<std::shared_ptr<IMailAttach>> m_all, m_images, m_inline;
};

// A meeting request: organizer and attendees, where and when.
class IMailMeeting {
public:
    virtual ~IMailMeeting() = default;
    virtual TDateTime AppoitmentStart() const = 0;
    virtual TDateTime AppoitmentEnd() const = 0;
    virtual QString Location() const = 0;
};

// The built-in style sheet with "[pagewidth]" filled in; other macros stay.
QString DefaultMailCSS(double paperWidth);

// Font lists in styles name Arial Unicode MS instead of fonts with few glyphs.
class TArialReplace {
public:
    static QString DoReplace(const QRegularExpressionMatch& match);
};

class TMailMsgHTML {
public:
    TMailMsgHTML(const IMailMessage& message, const TMailHTMLOptions& options, const IMailHTMLTask& task);

    void Start();
    // The header table. A contact gets its card instead, whatever fields
    // are chosen; a meeting without header fields gets its own rows (who,
    // where and when) all the same.
    void CreateHeader();
    void EmbedImages();
    void CreateBody();
    // The text written, or empty when nothing but the head was.
    QString Finish() const;

    // Removes Content-Type meta tags and substitutes fonts.
    static QString PrepareMeta(const QString& html);
    // Every value placed into the HTML: < > & " and characters from 256 up.
    static QString Encode(const QString& text);
    // Drops each backslash and keeps the character behind it; the last
    // character is never examined.
    static QString RemoveBackslashes(const QString& text);
    // The data URL of an image attachment's content; empty when it is no image.
    static QString ImageDataURL(const QByteArray& content);

    // Renders a whole message with Start, CreateHeader, EmbedImages and
    // CreateBody.
    static QString Render(const IMailMessage& message, const TMailHTMLOptions& options, const IMailHTMLTask& task);

private:
    QString NextRowId();
    QString CaptionCell(const QString& field) const;
    QString DateText(TDateTime date) const;
    QString LinkURL(const QString& url) const;
    void WriteSenderRow(const std::shared_ptr<IMailRecipient>& sender, bool withIP);
    void WriteRecipientRows(const QString& field, const QString& caption, bool showEmpty,
        const std::shared_ptr<IMailRecipientList>& list);
    void WriteTextRow(const QString& field, const QString& caption, const QString& text);
    void WriteAttachRows(const std::vector<std::shared_ptr<IMailAttach>>& list, const QString& rowId, int& index);
    // Organizer, attendees, location and time; in the header table also the
    // subject, and the rows of the required attendees and of the location
    // and time when they are empty.
    void WriteMeetingRows(const IMailMeeting& meeting, bool inHeader);
    // Name, work, addresses, dates, notes and picture; empty fields left out.
    void WriteContactCard(const IMailContact& contact);
    QString TextLinesToHtml(const QString& text) const;
    QString ResolveInlineImages(QString body) const;

    const IMailMessage& m_message;
    const TMailHTMLOptions& m_options;
    const IMailHTMLTask& m_task;
    QStringList m_lines;
    bool m_odd = true;
    bool m_attachCaption = false;
    bool m_empty = true;
};

// The charset a body declares in a meta tag, and the one the message
// headers give its HTML part; empty when none.
QString DeclaredCharset(const QString& html);
QString HeaderHtmlCharset(const QString& headers);
// The body taken from its charset to the display encoding; an unknown
// charset leaves it unchanged.
QString ConvertBodyCharset(const QString& charset, const QString& body);
// The HTML rendered from a message's body, decoded in the charset its
// headers give the HTML part when the body declares none and came through
// as bytes.
QString RepairBodyCharset(const IMailMessage& message, const QString& html);

} // namespace tessaly::mail
