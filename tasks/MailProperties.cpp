#include "tasks/MailProperties.h"

#include "core/SettingsStore.h"
#include "mail/MailMsgObj.h"

#include <QFileInfo>

namespace tessaly::tasks {

namespace {

const QString SettingsSection = QStringLiteral("Settings");
const QString LastNumberKey = QStringLiteral("LastProcessedNumber");
constexpr int MaxNameLength = 250;
constexpr int BodyMacroLength = 50;

QString FirstRecipient(const mail::IMailMessage& message)
{
    for (auto kind : {mail::mrtTo, mail::mrtCC, mail::mrtBCC})
        if (const auto list = message.Recipients(kind); list && list->Count() > 0)
            if (const auto recipient = list->GetRecipient(0))
                return recipient->Caption();
    return {};
}

QDateTime MessageDate(const mail::IMailMessage& message)
{
    for (auto kind : {mail::mdClientSubmit, mail::mdDelivery, mail::mdCreation, mail::mdModification}) {
        const auto date = message.Date(kind);
        if (date > 0)
            return core::DateTimeToQDateTime(date);
    }
    return {};
}

bool HasAttachments(const mail::IMailMessage& message)
{
    const auto attaches = message.Attaches();
    return attaches && attaches->Count() > 0;
}

QString SplitExtension(const QString& name, QString* extension)
{
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    if (dot <= 0) {
        *extension = QString();
        return name;
    }
    *extension = name.mid(dot);
    return name.left(dot);
}

} // namespace

QString ConvertTypeExtension(TMailConvertType type)
{
    static const char* const Extensions[] = {"html", "pdf", "txt", "docx", "rtf", "xlsx", "tiff", "jpg", "emf", "eml",
        "msg", "html", "pst", "xps", "mbox", "vcf"};
    return QLatin1String(Extensions[type]);
}

TMailProperties::TMailProperties()
{
    m_lastProcessedNumber = core::TSettingsStore::Global().ReadInteger(SettingsSection, LastNumberKey, 1);
}

void TMailProperties::SetConvertType(TMailConvertType type)
{
    m_convertType = type;
    m_extension = ConvertTypeExtension(type);
    const TMailFields mailFields {mitSender, mitRecipient, mitCC, mitBCC, mitDate, mitSubject, mitBody, mitRFCHeaders};
    switch (type) {
    case mctPDF: m_htmlConvertType = htPDF; break;
    case mctDOC: m_htmlConvertType = htDOC; break;
    case mctRTF: m_htmlConvertType = htRTF; break;
    case mctXLS: m_htmlConvertType = htXLS; break;
    case mctTIFF:
        m_htmlConvertType = htTIFF;
        m_singleImage = true;
        break;
    case mctJPEG: m_htmlConvertType = htJPG; break;
    case mctEMF: m_htmlConvertType = htEMF; break;
    case mctXPS: m_htmlConvertType = htPDF; break;
    case mctEML:
    case mctMSG: Fields = mailFields; break;
    case mctPST:
        UseFileNameTemplate = false;
        Fields = mailFields;
        break;
    case mctMBox:
        UseFileNameTemplate = false;
        CombineFiles = true;
        Fields = mailFields;
        break;
    default: break;
    }
}

bool TMailProperties::IsMailFormat() const
{
    return m_convertType == mctEML || m_convertType == mctMSG || m_convertType == mctPST || m_convertType == mctVCard;
}

bool TMailProperties::CommentInInches() const
{
    return m_convertType == mctPDF || m_convertType == mctDOC || m_convertType == mctRTF || m_convertType == mctXPS;
}

void TMailProperties::SetFileNameTemplate(const QString& text)
{
    m_fileNameTemplate = text;
    m_fileNameParsed.reset();
}

void TMailProperties::SetAttachNameTemplate(const QString& text)
{
    m_attachNameTemplate = text;
    m_attachNameParsed.reset();
}

void TMailProperties::SetCmdAttach(TAttachOptionType option, bool on)
{
    Attach.Set(option, on);
    if (option == aotSeparateMsg && on)
        Attach.Include(aotConvertMsg);
}

void TMailProperties::SetLastProcessedNumber(int number)
{
    m_lastProcessedNumber = number;
    core::TSettingsStore::Global().WriteInteger(SettingsSection, LastNumberKey, number);
}

int TMailProperties::RunningNumber(int index) const
{
    return (Counter == -1 ? m_lastProcessedNumber + 1 : Counter) + index;
}

mail::TMailHTMLOptions TMailProperties::HTMLOptions() const
{
    mail::TMailHTMLOptions o;
    o.Sender = Fields.Has(mitSender);
    o.Recipient = Fields.Has(mitRecipient);
    o.CC = Fields.Has(mitCC);
    o.BCC = Fields.Has(mitBCC);
    o.Date = Fields.Has(mitDate);
    o.Subject = Fields.Has(mitSubject);
    o.Body = Fields.Has(mitBody);
    o.RFCHeaders = Fields.Has(mitRFCHeaders);
    o.DateUTC = Fields.Has(mitDateUTC);
    o.SenderIP = Fields.Has(mitSenderIP);
    o.AttachSave = Attach.Has(aotSave);
    o.AttachInfo = Attach.Has(aotInfo);
    o.EmbedImages = Attach.Has(aotEmbedImages);
    o.FitImages = Attach.Has(aotFitImages);
    o.HTMLEmbedImages = HTMLEmbedImages;
    o.HTMLOutput = m_convertType == mctHTML || m_convertType == mctXHTML;
    o.NoStyle = m_convertType == mctTIFF;
    o.UseExternalCSS = UseExternalCSS;
    o.ExternalCSSFile = ExternalCSSFile;
    o.PaperWidth = PaperWidth;
    o.PaperHeight = PaperHeight;
    return o;
}

int TMailProperties::PrepareFileNameOptions() const
{
    return FileNameOptions.Has(fnoSharepointCompatible) ? (fncLength | fncSharepoint) : fncLength;
}

QString TMailProperties::GetFileNameByTemplate(const mail::IMailMessage& message, int index) const
{
    if (!UseFileNameTemplate)
        return QFileInfo(Destination).fileName();
    if (!m_fileNameParsed)
        m_fileNameParsed = std::make_unique<TMailTemplate>(m_fileNameTemplate);

    const QString expanded = m_fileNameParsed->Expand([&](const TTemplateMacro& macro) -> std::optional<QString> {
        const QString& name = macro.Name;
        // Kept for the later stages that fill them in.
        if (name == QLatin1String("page") || name == QLatin1String("last page") || name.startsWith(QLatin1String("attach"))
            || name == QLatin1String("dest index") || name == QLatin1String("dest_index"))
            return macro.Literal();
        if (name == QLatin1String("subject")) {
            const QString subject = message.Subject().trimmed();
            return TextMacro(FileNameOptions.Has(fnoClearSubject) ? ClearSubject(subject) : subject, macro);
        }
        if (name == QLatin1String("ifattach"))
            return HasAttachments(message) ? TextMacro(QStringLiteral("attach"), macro) : QString();
        if (name.startsWith(QLatin1String("sender"))) {
            const auto sender = message.Sender();
            if (name == QLatin1String("sender"))
                return TextMacro(sender ? sender->Caption() : QString(), macro);
            if (name == QLatin1String("sender.name"))
                return TextMacro(!sender ? QString() : !sender->Name().isEmpty() ? sender->Name() : sender->EMail(), macro);
            if (name == QLatin1String("sender.email"))
                return TextMacro(sender ? sender->EMail() : QString(), macro);
        }
        if (name == QLatin1String("recipient"))
            return TextMacro(FirstRecipient(message), macro);
        if (name == QLatin1String("date"))
            return DateMacro(MessageDate(message), macro);
        if (name == QLatin1String("now"))
            return DateMacro(QDateTime::currentDateTime(), macro);
        if (name == QLatin1String("n"))
            return NumberMacro(RunningNumber(index), macro);
        if (name == QLatin1String("nn")) {
            TTemplateMacro wide = macro;
            if (wide.Number() < 2) {
                wide.Parameter = QStringLiteral("2");
                wide.HasParameter = true;
            }
            return NumberMacro(RunningNumber(index), wide);
        }
        if (name == QLatin1String("mail_index"))
            return NumberMacro(index, macro);
        if (name == QLatin1String("body")) {
            const QString body = message.Body(mail::mbtText).simplified();
            return macro.Number() >= 1 ? TextMacro(body, macro) : body.left(BodyMacroLength).trimmed();
        }
        return std::nullopt;
    });

    QString name = CleanFileName(expanded, PrepareFileNameOptions());
    if (name.isEmpty())
        return {};
    name = name.left(MaxNameLength) + QLatin1Char('.') + m_extension;
    if (FileNameOptions.Has(fnoSharepointCompatible))
        name = CleanFileName(name, fncLength | fncSharepoint);
    return name;
}

QString TMailProperties::GetAttachNameByTemplate(
    const mail::IMailAttach& attach, const QString& mailFileName, int index) const
{
    const int flags = PrepareFileNameOptions();
    const QString own = CleanFileName(attach.FileName(), flags);
    if (m_attachNameTemplate.isEmpty())
        return own;
    if (!m_attachNameParsed)
        m_attachNameParsed = std::make_unique<TMailTemplate>(m_attachNameTemplate);

    QString ownExtension;
    const QString ownBase = SplitExtension(own, &ownExtension);
    QString mailExtension;
    const QString mailBase = SplitExtension(mailFileName, &mailExtension);
    QString expanded = m_attachNameParsed->Expand([&](const TTemplateMacro& macro) -> std::optional<QString> {
        if (macro.Name == QLatin1String("mail"))
            return TextMacro(mailBase, macro);
        if (macro.Name == QLatin1String("mail_index"))
            return NumberMacro(index, macro);
        if (macro.Name == QLatin1String("attach"))
            return TextMacro(ownBase, macro) + ownExtension;
        if (macro.Name == QLatin1String("attach_index"))
            return NumberMacro(index, macro);
        return std::nullopt;
    });
    expanded = CleanFileName(expanded, 0);
    if (expanded.isEmpty())
        return own;
    QString extension;
    QString base = SplitExtension(expanded, &extension);
    if (extension.isEmpty()) {
        expanded += own;
        base = SplitExtension(expanded, &extension);
    }
    if (expanded.size() > MaxNameLength)
        expanded = base.left(MaxNameLength) + ownExtension;
    return expanded;
}

} // namespace tessaly::tasks
