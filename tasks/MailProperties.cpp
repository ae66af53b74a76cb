#include "tasks/MailProperties.h"

#include "core/SettingsStore.h"
#include "mail/HtmlSanitizer.h"
#include "mail/MailMsgHTML.h"
#include "mail/MailMsgObj.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <optional>

namespace tessaly::tasks {

namespace {

const QString SettingsSection = QStringLiteral("Settings");
const QString LastNumberKey = QStringLiteral("LastProcessedNumber");
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
        "msg", "html", "pst", "xps", "mbox", "vcf", "ics"};
    return QLatin1String(Extensions[type]);
}

const QList<QPair<QString, QSizeF>>& PaperSizes()
{
    static const QList<QPair<QString, QSizeF>> Papers = {{QStringLiteral("a4"), {794, 1123}},
        {QStringLiteral("a3"), {1123, 1587}}, {QStringLiteral("a5"), {559, 794}},
        {QStringLiteral("letter"), {816, 1056}}, {QStringLiteral("legal"), {816, 1344}}};
    return Papers;
}

static TMailConverterOptions* g_converterOptions = nullptr;

TMailConverterOptions* TMailConverterOptions::Instance()
{
    return g_converterOptions;
}

void TMailConverterOptions::SetInstance(TMailConverterOptions* options)
{
    g_converterOptions = options;
}

TMailProperties::TMailProperties()
{
    m_lastProcessedNumber = core::TSettingsStore::Global().ReadInteger(SettingsSection, LastNumberKey, 1);
    if (const auto* converter = TMailConverterOptions::Instance())
        LogTemplate = converter->LogTemplate;
}

TMailProperties::~TMailProperties() = default;

void TMailProperties::SetConvertType(TMailConvertType type)
{
    m_convertType = type;
    m_extension = ConvertTypeExtension(type);
    const TMailFields mailFields {mitSender, mitRecipient, mitCC, mitBCC, mitDate, mitSubject, mitBody, mitRFCHeaders};
    switch (type) {
    case mctPDF: HTMLProperties.Type = htPDF; break;
    case mctDOC: HTMLProperties.Type = htDOC; break;
    case mctRTF: HTMLProperties.Type = htRTF; break;
    case mctXLS: HTMLProperties.Type = htXLS; break;
    case mctTIFF:
        HTMLProperties.Type = htTIFF;
        HTMLProperties.TIFF.SingleImage = true;
        break;
    case mctJPEG: HTMLProperties.Type = htJPG; break;
    case mctEMF: HTMLProperties.Type = htEMF; break;
    case mctXPS: HTMLProperties.Type = htPDF; break;
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
    o.HTMLEmbedImages = cmdHTMLEmbedImages();
    o.HTMLOutput = m_convertType == mctHTML || m_convertType == mctXHTML;
    o.NoStyle = m_convertType == mctTIFF;
    o.UseExternalCSS = UseExternalCSS;
    o.ExternalCSSFile = ExternalCSSFile;
    o.PaperWidth = HTMLProperties.Paper.Width;
    o.PaperHeight = HTMLProperties.Paper.Height;
    o.BreakPattern = Layout.BreakPattern;
    o.BreakBefore = Layout.InsertPosition == ipBefore;
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
    const QString extension = QLatin1Char('.') + m_extension;
    name = LimitNameBytes(name, MaxNameBytes - Utf8Length(extension)) + extension;
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
    if (Utf8Length(expanded) > MaxNameBytes)
        expanded = LimitNameBytes(base, MaxNameBytes - Utf8Length(ownExtension)) + ownExtension;
    return expanded;
}

} // namespace tessaly::tasks

namespace tessaly::tasks {

void TMailProperties::SetCmdExternalCSS(const QString& file)
{
    ExternalCSSFile = file;
    UseExternalCSS = true;
}

bool TMailProperties::wizardShowFile() const
{
    return SourceFileCount == 1 && m_convertType != mctPST && m_convertType != mctMBox && m_convertType != mctVCard;
}

bool TMailProperties::wizardSelectFolder() const
{
    return !wizardSelectPST() && !wizardSelectMBox() && !wizardShowFile();
}

bool TMailProperties::wizardShowCSS() const
{
    switch (m_convertType) {
    case mctTXT: case mctEML: case mctMSG: case mctPST: case mctMBox: case mctVCard: case mctICal: return false;
    default: return true;
    }
}

bool TMailProperties::wizardShowComment() const
{
    return m_convertType == mctPDF || m_convertType == mctTIFF || m_convertType == mctJPEG || m_convertType == mctXPS;
}

bool TMailProperties::wizardShowDocCombineOptions() const
{
    return CombineFiles && (m_convertType == mctDOC || m_convertType == mctRTF);
}

bool TMailProperties::wizardShowTemplate() const
{
    return UseFileNameTemplate && m_convertType != mctPST && m_convertType != mctMBox;
}

bool TMailProperties::InitDestination(
    const std::function<std::shared_ptr<mail::IMailMessage>()>& loadMessage, const QString& sourceFileName)
{
    const QFileInfo destination(Destination);
    const bool namesAFile = !Destination.isEmpty() && !Destination.endsWith(QLatin1Char('/'))
        && !Destination.endsWith(QLatin1Char('\\')) && !destination.isDir();
    const QString folder = namesAFile ? destination.absolutePath() : QDir(Destination).absolutePath();
    if (m_convertType == mctPST || m_convertType == mctMBox) {
        if (!namesAFile)
            Destination = QDir(folder).filePath(
                (m_convertType == mctPST ? QStringLiteral("Outlook") : QStringLiteral("EMails")) + QLatin1Char('.') + m_extension);
        return true;
    }
    if (m_convertType == mctVCard && SourceFileCount == 1) {
        Destination = folder;
        return true;
    }
    if (SourceFileCount == 1 && UseFileNameTemplate) {
        const auto message = loadMessage ? loadMessage() : nullptr;
        if (!message)
            return false;
        QString name = GetFileNameByTemplate(*message, 0);
        if (name.isEmpty())
            name = QFileInfo(sourceFileName).completeBaseName() + QLatin1Char('.') + m_extension;
        Destination = QDir(folder).filePath(name);
    }
    return true;
}

QString TMailProperties::GetDefaultCSS() const
{
    return mail::DefaultMailCSS(HTMLProperties.Paper.Width);
}

// --- stored options ---------------------------------------------------------

struct TPropertyInfo {
    const char* name;
    std::function<QVariant()> get;
    std::function<void(const QVariant&)> set;
};

namespace {

template <class E>
QString SetText(const TOptionSet<E>& set, std::initializer_list<std::pair<E, const char*>> names)
{
    QStringList members;
    for (const auto& [member, name] : names)
        if (set.Has(member))
            members << QLatin1String(name);
    return members.join(QLatin1Char(','));
}

template <class E>
TOptionSet<E> SetFromText(const QString& text, std::initializer_list<std::pair<E, const char*>> names)
{
    TOptionSet<E> set;
    for (const QString& member : text.split(QLatin1Char(','), Qt::SkipEmptyParts))
        for (const auto& [value, name] : names)
            if (member.trimmed() == QLatin1String(name))
                set.Include(value);
    return set;
}

const std::initializer_list<std::pair<TMailFieldType, const char*>> FieldNames = {{mitSender, "mitSender"},
    {mitRecipient, "mitRecipient"}, {mitCC, "mitCC"}, {mitBCC, "mitBCC"}, {mitDate, "mitDate"},
    {mitSubject, "mitSubject"}, {mitBody, "mitBody"}, {mitRFCHeaders, "mitRFCHeaders"}, {mitDateUTC, "mitDateUTC"},
    {mitSenderIP, "mitSenderIP"}};
const std::initializer_list<std::pair<TAttachOptionType, const char*>> AttachNames = {{aotSave, "aotSave"},
    {aotInfo, "aotInfo"}, {aotUnpack, "aotUnpack"}, {aotEmbedImages, "aotEmbedImages"},
    {aotFitImages, "aotFitImages"}, {aotConvertMsg, "aotConvertMsg"}, {aotSeparateMsg, "aotSeparateMsg"},
    {aotConvertDocuments, "aotConvertDocuments"}, {aotSeparateDocuments, "aotSeparateDocuments"},
    {aotAttachesFirst, "aotAttachesFirst"}, {aotOneAttachPerMail, "aotOneAttachPerMail"},
    {aotManualSelect, "aotManualSelect"}};
const std::initializer_list<std::pair<TFileNameOptionType, const char*>> FileNameOptionNames = {
    {fnoClearSubject, "fnoClearSubject"}, {fnoSharepointCompatible, "fnoSharepointCompatible"}};
const std::initializer_list<std::pair<TFormatOptionType, const char*>> FormatNames = {
    {fotXHTML, "fotXHTML"}, {fotHTMLEmbedImages, "fotHTMLEmbedImages"}};
const std::initializer_list<std::pair<TTextExportOptionType, const char*>> TextExportNames = {
    {tetUseHTMLBody, "tetUseHTMLBody"}};
const std::initializer_list<std::pair<TCombineDocOption, const char*>> CombineNames = {
    {cdoTOC, "cdoTOC"}, {cdoEveryFileNewPage, "cdoEveryFileNewPage"}};

template <class T>
TPropertyInfo Value(const char* name, T& field)
{
    return {name, [&field] { return QVariant::fromValue(field); }, [&field](const QVariant& v) { field = v.value<T>(); }};
}

template <class E>
TPropertyInfo Enum(const char* name, E& field, int count)
{
    return {name, [&field] { return QVariant(int(field)); },
        [&field, count](const QVariant& v) {
            const int value = v.toInt();
            if (value >= 0 && value < count)
                field = E(value);
        }};
}

template <class E>
TPropertyInfo Set(const char* name, TOptionSet<E>& field, std::initializer_list<std::pair<E, const char*>> names)
{
    return {name, [&field, names] { return QVariant(SetText(field, names)); },
        [&field, names](const QVariant& v) { field = SetFromText(v.toString(), names); }};
}

} // namespace

std::vector<TPropertyInfo> TMailProperties::Properties()
{
    // In declared order; read-only and derived properties are not stored.
    return {
        Value("UseExternalCSS", UseExternalCSS),
        Value("ExternalCSSFile", ExternalCSSFile),
        Value("PDF.EmbedFonts", HTMLProperties.PDF.EmbedFonts),
        Value("Paper.Width", HTMLProperties.Paper.Width),
        Value("Paper.Height", HTMLProperties.Paper.Height),
        Value("TIFF.SingleImage", HTMLProperties.TIFF.SingleImage),
        Value("Title.CommentLeft", HTMLProperties.Title.CommentLeft),
        Value("Title.CommentRight", HTMLProperties.Title.CommentRight),
        Set("TextExportOptions", TextExportOptions, TextExportNames),
        Set("Doc.CombineOptions", Doc.CombineOptions, CombineNames),
        Set("Fields", Fields, FieldNames),
        Set("Attach", Attach, AttachNames),
        Set("FormatOptions", FormatOptions, FormatNames),
        Enum("PrintMeta", PrintMeta, 3),
        Value("UseFileNameTemplate", UseFileNameTemplate),
        {"ConvertType", [this] { return QVariant(int(m_convertType)); },
            [this](const QVariant& v) {
                // The stored format without its side effects: the options
                // stored beside it are what the user left them at.
                const int value = v.toInt();
                if (value >= mctHTML && value <= mctICal) {
                    m_convertType = TMailConvertType(value);
                    m_extension = ConvertTypeExtension(m_convertType);
                }
            }},
        Enum("HTMLProperties.Type", HTMLProperties.Type, htODT + 1),
        {"FileNameTemplate", [this] { return QVariant(m_fileNameTemplate); },
            [this](const QVariant& v) { SetFileNameTemplate(v.toString()); }},
        Value("Counter", Counter),
        {"AttachNameTemplate", [this] { return QVariant(m_attachNameTemplate); },
            [this](const QVariant& v) { SetAttachNameTemplate(v.toString()); }},
        Value("ExcludeAttachDocuments", ExcludeAttachDocuments),
        Set("FileNameOptions", FileNameOptions, FileNameOptionNames),
        Value("DocConverterOFF", DocConverterOFF),
        Value("Layout.BreakPattern", Layout.BreakPattern),
        Enum("Layout.InsertPosition", Layout.InsertPosition, 2),
        {"Filter", [this] { return QVariant(Filter.Cmd()); }, [this](const QVariant& v) { Filter.SetCmd(v.toString()); }},
        Value("Destination", Destination),
        Value("KeepFolderStructure", KeepFolderStructure),
        Value("KeepFolderLevel", KeepFolderLevel),
        Enum("CheckFileMode", CheckFileMode, 5),
        Value("DeleteOriginals", DeleteOriginals),
        Value("OpenDestination", OpenDestination),
        Value("CombineFiles", CombineFiles),
        Value("RemotePictures", RemotePictures),
        Value("PicturesBeside", PicturesBeside),
        {"VCardVersion", [this] { return QVariant(VCardVersion); },
            [this](const QVariant& v) {
                if (v.toInt() == 3 || v.toInt() == 4)
                    VCardVersion = v.toInt();
            }},
        Value("OneFormat", OneFormat),
        Value("CopyDateStamps", CopyDateStamps),
        Value("LimitCount", LimitCount),
        Enum("LogMode", LogMode, 2),
        Value("LogFileName", LogFileName),
        Enum("LogVerbosity", LogVerbosity, 2),
        Value("LogTemplate", LogTemplate),
    };
}

QStringList TMailProperties::StoredNames() const
{
    QStringList names;
    for (const auto& p : const_cast<TMailProperties*>(this)->Properties())
        names << QLatin1String(p.name);
    return names;
}

void TMailProperties::Save(core::TSettingsStore& store, const QString& section) const
{
    for (const auto& p : const_cast<TMailProperties*>(this)->Properties())
        store.WriteValue(section, QLatin1String(p.name), p.get());
}

void TMailProperties::Load(const core::TSettingsStore& store, const QString& section)
{
    for (const auto& p : Properties())
        if (store.ValueExists(section, QLatin1String(p.name)))
            p.set(store.ReadValue(section, QLatin1String(p.name)));
}

// --- command line -------------------------------------------------------------

namespace {

struct TCmdSwitch {
    const char* key;
    const char* description;
    std::optional<TMailFieldType> field;
    std::optional<TAttachOptionType> attach;
    std::optional<TFileNameOptionType> fileName;
};

const TCmdSwitch Switches[] = {
    {"Sender", QT_TRANSLATE_NOOP("TMailProperties", "Show the sender"), mitSender, {}, {}},
    {"Recipient", QT_TRANSLATE_NOOP("TMailProperties", "Show the recipients"), mitRecipient, {}, {}},
    {"CC", QT_TRANSLATE_NOOP("TMailProperties", "Show the CC recipients"), mitCC, {}, {}},
    {"BCC", QT_TRANSLATE_NOOP("TMailProperties", "Show the BCC recipients"), mitBCC, {}, {}},
    {"Date", QT_TRANSLATE_NOOP("TMailProperties", "Show the date"), mitDate, {}, {}},
    {"Subject", QT_TRANSLATE_NOOP("TMailProperties", "Show the subject"), mitSubject, {}, {}},
    {"Body", QT_TRANSLATE_NOOP("TMailProperties", "Show the body"), mitBody, {}, {}},
    {"Headers", QT_TRANSLATE_NOOP("TMailProperties", "Show the internet headers"), mitRFCHeaders, {}, {}},
    {"DateUTC", QT_TRANSLATE_NOOP("TMailProperties", "Show dates in UTC"), mitDateUTC, {}, {}},
    {"AttachSave", QT_TRANSLATE_NOOP("TMailProperties", "Save attachments beside the output"), {}, aotSave, {}},
    {"AttachInfo", QT_TRANSLATE_NOOP("TMailProperties", "List attachments in the header"), {}, aotInfo, {}},
    {"AttachUnpack", QT_TRANSLATE_NOOP("TMailProperties", "Unpack attached archives"), {}, aotUnpack, {}},
    {"AttachEmbedImages", QT_TRANSLATE_NOOP("TMailProperties", "Show attached images"), {}, aotEmbedImages, {}},
    {"AttachFitImages", QT_TRANSLATE_NOOP("TMailProperties", "Fit shown images to the page"), {}, aotFitImages, {}},
    {"AttachConvertMsg", QT_TRANSLATE_NOOP("TMailProperties", "Convert attached messages"), {}, aotConvertMsg, {}},
    {"AttachSeparateMsg", QT_TRANSLATE_NOOP("TMailProperties", "Convert attached messages to files of their own"), {}, aotSeparateMsg, {}},
    {"ClearSubject", QT_TRANSLATE_NOOP("TMailProperties", "Leave RE:, FW: and the like out of file names"), {}, {}, fnoClearSubject},
    {"FileSharepoint", QT_TRANSLATE_NOOP("TMailProperties", "File names that SharePoint accepts"), {}, {}, fnoSharepointCompatible},
};

} // namespace

QList<core::TCommandKey> TMailProperties::CommandKeys()
{
    QList<core::TCommandKey> keys;
    for (const auto& s : Switches)
        keys.append({QLatin1String(s.key), QCoreApplication::translate("TMailProperties", s.description), core::TKeyKind::Switch, false});
    keys.append({QStringLiteral("LastCounter"), QCoreApplication::translate("TMailProperties", "Number outputs on from the last run"),
        core::TKeyKind::Switch, false});
    keys.append({QStringLiteral("HTMLEmbedImages"), QCoreApplication::translate("TMailProperties", "Put images into HTML output as data URLs"),
        core::TKeyKind::Switch, false});
    keys.append({QStringLiteral("ExternalCSS"), QCoreApplication::translate("TMailProperties", "Style sheet for HTML output"), core::TKeyKind::Value, true});
    return keys;
}

void TMailProperties::ApplyCommandLine(const core::TCommandLine& commandLine)
{
    for (const auto& s : Switches) {
        const QString key = QLatin1String(s.key);
        if (!commandLine.HasKey(key))
            continue;
        const bool on = commandLine.Switch(key);
        if (s.field)
            SetCmdField(*s.field, on);
        else if (s.attach)
            SetCmdAttach(*s.attach, on);
        else if (s.fileName)
            FileNameOptions.Set(*s.fileName, on);
    }
    if (commandLine.HasKey(QStringLiteral("LastCounter")))
        SetCmdLastCounter(commandLine.Switch(QStringLiteral("LastCounter")));
    if (commandLine.HasKey(QStringLiteral("HTMLEmbedImages")))
        SetCmdHTMLEmbedImages(commandLine.Switch(QStringLiteral("HTMLEmbedImages")));
    if (commandLine.HasKey(QStringLiteral("ExternalCSS")))
        SetCmdExternalCSS(commandLine.Value(QStringLiteral("ExternalCSS")));
}

QString StandaloneHtmlPage(const mail::IMailMessage& message, bool remotePictures)
{
    TPageOptions options;
    options.RemotePictures = remotePictures;
    return StandaloneHtmlPage(message, options);
}

QString StandaloneHtmlPage(const mail::IMailMessage& message, const TPageOptions& page)
{
    TMailProperties options;
    options.SetCmdHTMLEmbedImages(page.EmbedPictures);
    options.Attach.Set(aotSave, page.LinkAttachments);
    std::optional<mail::TMessageHTMLTask> ownTask;
    if (!page.Task)
        ownTask.emplace(message);
    const QString html = mail::TMailMsgHTML::Render(message, options.HTMLOptions(), page.Task ? *page.Task : *ownTask);
    mail::THtmlSanitizeOptions safe;
    safe.RemotePictures = page.RemotePictures;
    return mail::THtmlSanitizer::Sanitize(QStringLiteral("<html>\r\n") + html + QStringLiteral("\r\n</html>\r\n"), safe);
}

} // namespace tessaly::tasks
