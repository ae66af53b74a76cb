#include "pst/PSTReport.h"

#include "core/Exceptions.h"
#include "pst/PSTFile.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <climits>

namespace tessaly::pst {

namespace {

const char* KindName(TPSTFolderKind kind)
{
    static const char* const Names[] = {"inbox", "sent", "drafts", "trash", "outbox", "other"};
    return Names[kind];
}

const char* FolderType(const TPSTFolder& folder)
{
    if (dynamic_cast<const TPSTContactFolder*>(&folder))
        return "contact";
    if (dynamic_cast<const TPSTAppointmentFolder*>(&folder))
        return "appointment";
    return "mail";
}

QJsonValue IsoDate(core::TDateTime date)
{
    if (date <= 0)
        return QJsonValue::Null;
    return core::DateTimeToQDateTime(date).toUTC().toString(Qt::ISODate);
}

QJsonObject MailReport(const TPSTMailItem& mail, int depth);

// Attached messages are reported in full, to this depth.
constexpr int MaxEmbeddingDepth = 8;

QJsonArray Attachments(const TPSTDetailItem& item, int depth)
{
    QJsonArray list;
    const TAttachList& attaches = item.Attaches();
    for (int i = 0; i < attaches.Count(); ++i) {
        const auto attach = attaches.GetAttach(i);
        if (!attach)
            continue;
        QJsonObject entry{{QStringLiteral("name"), attach->FileName()}, {QStringLiteral("size"), attach->Size()},
            {QStringLiteral("content"), qint64(attach->ContentBytes().size())},
            {QStringLiteral("contentType"), attach->ContentType()}, {QStringLiteral("contentId"), attach->ContentID()},
            {QStringLiteral("contentLocation"), attach->ContentLocation()}};
        if (const auto embedded = attach->AsMailItem(); embedded && depth < MaxEmbeddingDepth)
            entry[QStringLiteral("message")] = MailReport(*embedded, depth + 1);
        list.append(entry);
    }
    return list;
}

QJsonObject MailReport(const TPSTMailItem& mail, int depth)
{
    const TMailBody& body = mail.Body();
    QJsonObject object{
        {QStringLiteral("class"), dynamic_cast<const TPSTMeetingItem*>(&mail) ? "meeting" : "mail"},
        {QStringLiteral("messageClass"), mail.MessageClass()},
        {QStringLiteral("subject"), mail.Subject()},
        {QStringLiteral("sender"), mail.Sender().Caption},
        {QStringLiteral("to"), mail.Recipients(rlTo).Caption(INT_MAX)},
        {QStringLiteral("cc"), mail.Recipients(rlCC).Caption(INT_MAX)},
        {QStringLiteral("bcc"), mail.Recipients(rlBCC).Caption(INT_MAX)},
        {QStringLiteral("dates"),
            QJsonObject{{QStringLiteral("submit"), IsoDate(mail.Date(pdSubmit))},
                {QStringLiteral("delivery"), IsoDate(mail.Date(pdDelivery))},
                {QStringLiteral("creation"), IsoDate(mail.Date(pdCreation))},
                {QStringLiteral("modification"), IsoDate(mail.Date(pdModification))}}},
        {QStringLiteral("attachments"), Attachments(mail, depth)},
        {QStringLiteral("headers"), qint64(mail.Headers().size())},
        {QStringLiteral("bodies"),
            QJsonObject{{QStringLiteral("text"), qint64(body.Text.size())},
                {QStringLiteral("html"), qint64(body.HTML.size())}, {QStringLiteral("rtf"), qint64(body.RTF.size())}}},
    };
    if (const auto* meeting = dynamic_cast<const TPSTMeetingItem*>(&mail)) {
        object[QStringLiteral("start")] = IsoDate(meeting->AppoitmentStart());
        object[QStringLiteral("end")] = IsoDate(meeting->AppoitmentEnd());
        object[QStringLiteral("location")] = meeting->Location();
    }
    return object;
}

QJsonObject ContactReport(const TPSTContactItem& contact)
{
    // Every field by number; the birthday as a date, the picture by its size.
    QJsonArray fields;
    for (int field = 0; field < mail::cfCount; ++field) {
        const QVariant value = contact.Field(field);
        if (!value.isValid())
            fields.append(QJsonValue::Null);
        else if (field == mail::cfBirthday)
            fields.append(value.toDateTime().toUTC().toString(Qt::ISODate));
        else if (field == mail::cfPicture)
            fields.append(qint64(value.toByteArray().size()));
        else
            fields.append(value.toString());
    }
    return QJsonObject{
        {QStringLiteral("class"), "contact"},
        {QStringLiteral("subject"), contact.Field(mail::cfSubject).toString()},
        {QStringLiteral("name"), contact.Field(mail::cfDisplayName).toString()},
        {QStringLiteral("fields"), fields},
        {QStringLiteral("attachments"), Attachments(contact, 0)},
    };
}

QJsonObject FolderFields(TPSTFolder& folder, const TReportOptions& options)
{
    QJsonObject object{
        {QStringLiteral("name"), folder.Name()},
        {QStringLiteral("kind"), KindName(folder.Kind())},
        {QStringLiteral("type"), FolderType(folder)},
        {QStringLiteral("class"), folder.ContainerClass()},
        {QStringLiteral("items"), folder.ItemCount()},
    };
    if (options.Messages) {
        QJsonArray messages;
        const int count = folder.ItemCount();
        for (int i = 0; i < count; ++i) {
            const auto item = folder.GetItem(i);
            if (const auto* mail = dynamic_cast<const TPSTMailItem*>(item.get()))
                messages.append(MailReport(*mail, 0));
            else if (const auto* contact = dynamic_cast<const TPSTContactItem*>(item.get()))
                messages.append(ContactReport(*contact));
            else
                messages.append(QJsonObject{{QStringLiteral("class"), "unreadable"}});
        }
        object[QStringLiteral("messages")] = messages;
    }
    return object;
}

// The folder and everything below it, walked without recursion: a frame per
// open folder, whose object goes into its parent's list once its last
// sub-folder is done.
QJsonObject FolderReport(TPSTFolder& top, const TReportOptions& options)
{
    struct TFrame {
        TPSTFolder* folder;
        QJsonObject object;
        QJsonArray children;
        int next = 0;
    };
    std::vector<TFrame> stack;
    stack.push_back({&top, FolderFields(top, options), {}, 0});
    for (;;) {
        TFrame& frame = stack.back();
        if (frame.next < frame.folder->FolderCount()) {
            TPSTFolder* child = frame.folder->GetFolder(frame.next++);
            stack.push_back({child, FolderFields(*child, options), {}, 0});
            continue;
        }
        frame.object[QStringLiteral("folders")] = frame.children;
        QJsonObject done = std::move(frame.object);
        stack.pop_back();
        if (stack.empty())
            return done;
        stack.back().children.append(done);
    }
}

void AppendFolderText(const QJsonObject& top, QString& text)
{
    std::vector<std::pair<QJsonObject, int>> pending{{top, 0}};
    while (!pending.empty()) {
        const auto [folder, level] = std::move(pending.back());
        pending.pop_back();
        const QString indent(level * 2, QLatin1Char(' '));
        const QString name = folder[QStringLiteral("name")].toString();
        text += indent + (name.isEmpty() ? QStringLiteral("(root)") : name)
            + QStringLiteral(" [%1").arg(folder[QStringLiteral("kind")].toString());
        if (!folder[QStringLiteral("class")].toString().isEmpty())
            text += QStringLiteral(", ") + folder[QStringLiteral("class")].toString();
        text += QStringLiteral("] (%1)\n").arg(folder[QStringLiteral("items")].toInt());
        for (const auto& value : folder[QStringLiteral("messages")].toArray()) {
            const QJsonObject m = value.toObject();
            text += indent + QStringLiteral("  - %1: %2").arg(m[QStringLiteral("class")].toString(),
                                                                m[QStringLiteral("subject")].toString());
            if (!m[QStringLiteral("sender")].toString().isEmpty())
                text += QStringLiteral(" | from %1").arg(m[QStringLiteral("sender")].toString());
            const auto attachments = m[QStringLiteral("attachments")].toArray();
            if (!attachments.isEmpty())
                text += QStringLiteral(" | %1 attachment(s)").arg(attachments.size());
            text += QLatin1Char('\n');
        }
        const QJsonArray children = folder[QStringLiteral("folders")].toArray();
        for (auto it = children.end(); it != children.begin();) {
            --it;
            pending.emplace_back(it->toObject(), level + 1);
        }
    }
}

void CheckReadable(TPSTFile& file)
{
    if (!file.IsOpen())
        throw core::ETessalyError(
            QCoreApplication::translate("PSTReport", "Can not open %1: it is not an Outlook data file, or it is damaged").arg(file.FileName()));
    if (!file.RootFolder())
        throw core::ETessalyError(QCoreApplication::translate("PSTReport", "Can not read the folders of %1").arg(file.FileName()));
}

// A value as QJsonDocument writes it, at `level`: objects and arrays on
// lines of their own, each line after the first indented by the level.
QByteArray JsonText(const QJsonValue& value, int level)
{
    QByteArray text;
    if (value.isObject() || value.isArray()) {
        text = value.isObject() ? QJsonDocument(value.toObject()).toJson(QJsonDocument::Indented)
                                : QJsonDocument(value.toArray()).toJson(QJsonDocument::Indented);
        text.chop(1); // the document's last line break
    } else {
        text = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
        text = text.mid(1, text.size() - 2);
    }
    if (level > 0)
        text.replace("\n", "\n" + QByteArray(4 * level, ' '));
    return text;
}

QByteArray Indent(int level)
{
    return QByteArray(4 * level, ' ');
}

} // namespace

std::unique_ptr<TPSTFile> OpenForReport(const QString& fileName)
{
    if (!QFileInfo(fileName).isFile())
        throw core::ETessalyError(QCoreApplication::translate("PSTReport", "File not found: %1").arg(fileName));
    auto file = std::make_unique<TPSTFile>(fileName);
    CheckReadable(*file);
    return file;
}

void WriteReportJson(TPSTFile& file, const TReportOptions& options, int level,
    const std::function<void(const QByteArray&)>& write)
{
    CheckReadable(file);
    // Keys in QJsonObject's order (sorted); what is known only after the
    // walk ("skippedFolders") sorts after "root".
    write("{\n" + Indent(level + 1) + "\"bits\": " + JsonText(file.Is64Bit() ? 64 : 32, 0) + ",\n");
    write(Indent(level + 1) + "\"file\": " + JsonText(file.FileName(), 0) + ",\n");
    write(Indent(level + 1) + "\"format\": " + JsonText(file.IsOST() ? "OST" : "PST", 0) + ",\n");
    write(Indent(level + 1) + "\"root\": ");

    // A folder's keys: class, folders, items, kind, messages, name, type;
    // its sub-folders are written between its class and its count.
    struct TFrame {
        TPSTFolder* folder;
        int level; // of the folder's object
        int next = 0;
    };
    const auto open = [&](TPSTFolder& folder, int at) {
        write("{\n" + Indent(at + 1) + "\"class\": " + JsonText(folder.ContainerClass(), 0) + ",\n" + Indent(at + 1)
            + "\"folders\": [\n");
    };
    const auto close = [&](TPSTFolder& folder, int at) {
        write(Indent(at + 1) + "],\n");
        write(Indent(at + 1) + "\"items\": " + JsonText(folder.ItemCount(), 0) + ",\n");
        write(Indent(at + 1) + "\"kind\": " + JsonText(KindName(folder.Kind()), 0) + ",\n");
        if (options.Messages) {
            write(Indent(at + 1) + "\"messages\": [\n");
            const int count = folder.ItemCount();
            for (int i = 0; i < count; ++i) {
                const auto item = folder.GetItem(i);
                QJsonObject object;
                if (const auto* mail = dynamic_cast<const TPSTMailItem*>(item.get()))
                    object = MailReport(*mail, 0);
                else if (const auto* contact = dynamic_cast<const TPSTContactItem*>(item.get()))
                    object = ContactReport(*contact);
                else
                    object = QJsonObject{{QStringLiteral("class"), "unreadable"}};
                write(Indent(at + 2) + JsonText(object, at + 2) + (i + 1 < count ? ",\n" : "\n"));
            }
            write(Indent(at + 1) + "],\n");
        }
        write(Indent(at + 1) + "\"name\": " + JsonText(folder.Name(), 0) + ",\n");
        write(Indent(at + 1) + "\"type\": " + JsonText(FolderType(folder), 0) + "\n" + Indent(at) + "}");
    };
    std::vector<TFrame> stack{{file.RootFolder(), level + 1}};
    open(*file.RootFolder(), level + 1);
    while (!stack.empty()) {
        TFrame& frame = stack.back();
        if (frame.next < frame.folder->FolderCount()) {
            TPSTFolder* child = frame.folder->GetFolder(frame.next++);
            const int at = frame.level + 2;
            write(Indent(at));
            open(*child, at);
            stack.push_back({child, at});
            continue;
        }
        const TFrame done = frame;
        stack.pop_back();
        close(*done.folder, done.level);
        if (!stack.empty())
            write(stack.back().next < stack.back().folder->FolderCount() ? ",\n" : "\n");
    }
    if (file.FoldersLeftOut())
        write(",\n" + Indent(level + 1) + "\"skippedFolders\": true");
    write("\n" + Indent(level) + "}");
}

QJsonObject ReportFile(TPSTFile& file, const TReportOptions& options)
{
    CheckReadable(file);
    TPSTRootFolder* root = file.RootFolder();
    QJsonObject report{
        {QStringLiteral("file"), file.FileName()},
        {QStringLiteral("format"), file.IsOST() ? "OST" : "PST"},
        {QStringLiteral("bits"), file.Is64Bit() ? 64 : 32},
        {QStringLiteral("root"), FolderReport(*root, options)},
    };
    if (file.FoldersLeftOut())
        report[QStringLiteral("skippedFolders")] = true;
    return report;
}

QJsonObject ReportFile(const QString& fileName, const TReportOptions& options)
{
    return ReportFile(*OpenForReport(fileName), options);
}

QString ReportText(const QJsonObject& report)
{
    QString text = QStringLiteral("%1 (%2, %3-bit)\n")
                       .arg(report[QStringLiteral("file")].toString(), report[QStringLiteral("format")].toString())
                       .arg(report[QStringLiteral("bits")].toInt());
    AppendFolderText(report[QStringLiteral("root")].toObject(), text);
    if (report[QStringLiteral("skippedFolders")].toBool())
        text += FoldersLeftOutText() + QLatin1Char('\n');
    return text;
}

} // namespace tessaly::pst
