// Output names from templates and message fields built from the input: the
// message's file name, the attachments' names through their own template,
// and the safe names of attachments and source folders. Whatever the input,
// a name must stay one name inside the folder it is written to: no "/", no
// NUL or other control character, never "." or "..", not empty, and within
// the 255 bytes of UTF-8 that file systems allow for a name. A name that
// breaks this aborts.

#include "core/SettingsStore.h"
#include "fuzz_input.h"
#include "mail/MailMsgObj.h"
#include "tasks/MailProperties.h"
#include "tasks/MailTemplate.h"

#include <QTemporaryDir>
#include <cstdio>
#include <cstdlib>

namespace {

using namespace tessaly;
using namespace tessaly::mail;
using namespace tessaly::tasks;

void Check(bool ok, const char* what, const QString& name)
{
    if (!ok) {
        std::fprintf(stderr, "bad name (%s): \"%s\"\n", what, name.toUtf8().constData());
        std::abort();
    }
}

// One component of a path, kept inside its folder.
void CheckName(const QString& name, const char* what)
{
    Check(!name.isEmpty(), what, name);
    Check(name != QLatin1String(".") && name != QLatin1String(".."), what, name);
    for (QChar c : name)
        Check(c != QLatin1Char('/') && c.unicode() >= 0x20, what, name);
    Check(name.toUtf8().size() <= 255, what, name);
}

class TAttach : public IMailAttach {
public:
    QString name, type;
    QString FileName() const override { return name; }
    std::unique_ptr<QIODevice> Content() const override { return nullptr; }
    QString ContentID() const override { return {}; }
    QString ContentType() const override { return type; }
    QString ContentDisposition() const override { return {}; }
    QString ContentLocation() const override { return {}; }
    std::shared_ptr<IMailMessage> AsMailMessage() const override { return nullptr; }
};

class TAttachList : public TCustomMailAttachList {
public:
    std::vector<std::shared_ptr<TAttach>> items;
    int Count() const override { return int(items.size()); }
    std::shared_ptr<IMailAttach> GetAttach(int index) const override { return items.at(size_t(index)); }
};

class TMessage : public IMailMessage {
public:
    std::shared_ptr<IMailRecipient> sender;
    std::shared_ptr<IMailRecipientList> to;
    QString subject, text;
    TDateTime date = 0;
    std::shared_ptr<TAttachList> attaches = std::make_shared<TAttachList>();

    std::shared_ptr<IMailRecipient> Sender() const override { return sender; }
    QString SenderIP() const override { return {}; }
    QString Subject() const override { return subject; }
    std::shared_ptr<IMailRecipientList> Recipients(TMailRecipientType kind) const override
    {
        return kind == mrtTo ? to : nullptr;
    }
    QString Body(TMailBodyType kind) const override { return kind == mbtText ? text : QString(); }
    TDateTime Date(TMailDateType kind) const override { return kind == mdClientSubmit ? date : 0; }
    QString Headers() const override { return {}; }
    std::shared_ptr<IMailAttachList> Attaches() const override { return attaches; }
};

// A template from pieces: macros the program knows, with or without a
// parameter, and text of any kind.
QString Template(TFuzzInput& in)
{
    static const char* const Macros[] = {"subject", "sender", "sender.name", "sender.email", "recipient", "date",
        "now", "n", "nn", "mail_index", "ifattach", "body", "page", "attach", "attach_index", "mail", "dest_index"};
    QString text;
    for (int i = 0, n = in.Pick(7); i < n; ++i) {
        switch (in.Pick(3)) {
        case 0: text += QLatin1Char('[') + QLatin1String(Macros[in.Pick(int(std::size(Macros)))]) + QLatin1Char(']'); break;
        case 1:
            text += QLatin1Char('[') + QLatin1String(Macros[in.Pick(int(std::size(Macros)))]) + QLatin1Char(':')
                + in.Text(12) + QLatin1Char(']');
            break;
        default: text += in.Text(40); break;
        }
    }
    return text;
}

// Long texts come from a few characters repeated, so that names reach the
// length limits from short inputs.
QString Field(TFuzzInput& in)
{
    const QString text = in.Text(40);
    const int repeat = in.Pick(4) == 0 ? 1 + in.Pick(200) : 1;
    return text.repeated(repeat);
}

void Setup()
{
    static QTemporaryDir dir;
    core::TSettingsStore::SetGlobal(std::make_unique<core::TSettingsStore>(dir.filePath(QStringLiteral("fuzz.ini"))));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const bool ready = (Setup(), true);
    (void)ready;
    TFuzzInput in(data, size);

    TMailProperties properties;
    static const TMailConvertType Types[] = {mctEML, mctHTML, mctPDF, mctTXT, mctMSG, mctVCard};
    properties.SetConvertType(Types[in.Pick(int(std::size(Types)))]);
    properties.FileNameOptions.Set(fnoClearSubject, in.Bool());
    properties.FileNameOptions.Set(fnoSharepointCompatible, in.Bool());
    properties.Counter = in.Bool() ? -1 : int(in.Word());
    properties.SetFileNameTemplate(Template(in));
    properties.SetAttachNameTemplate(in.Bool() ? Template(in) : QString());

    TMessage message;
    message.subject = Field(in);
    if (in.Bool())
        message.sender = std::make_shared<TMailRecipient>(Field(in), in.Text(40));
    if (in.Bool())
        message.to = std::make_shared<TMailRecipientArray>(
            std::vector<std::shared_ptr<IMailRecipient>>{std::make_shared<TMailRecipient>(Field(in), in.Text(40))});
    message.text = Field(in);
    message.date = in.Bool() ? TDateTime(int32_t(in.Long())) / 1024.0 : 0;
    for (int i = 0, n = in.Pick(3); i < n; ++i) {
        auto attach = std::make_shared<TAttach>();
        attach->name = Field(in);
        attach->type = in.Text(20);
        message.attaches->items.push_back(attach);
    }
    const int index = in.Word();

    // The message's output name; empty only when the template gives nothing.
    const QString name = properties.GetFileNameByTemplate(message, index);
    if (!name.isEmpty()) {
        CheckName(name, "message file name");
        Check(name.endsWith(QLatin1Char('.') + properties.Extension()), "extension", name);
    }

    // Attachment names as the export saves them: by template, then made safe.
    for (int i = 0; i < message.attaches->Count(); ++i) {
        const QString byTemplate = properties.GetAttachNameByTemplate(*message.attaches->items[size_t(i)],
            name.isEmpty() ? QStringLiteral("message.eml") : name, i);
        Check(!byTemplate.contains(QLatin1Char('/')) && !byTemplate.contains(QChar(0)), "attachment template", byTemplate);
        const QString safe = SafeAttachName(byTemplate);
        CheckName(safe, "safe attachment name");
        Check(safe.toUtf8().size() <= 200, "safe name length", safe);
        Check(SafeAttachName(safe) == safe, "safe name not stable", safe);
    }

    // Any text as an attachment's or a source folder's name.
    const QString raw = Field(in);
    const QString safe = SafeAttachName(raw, QStringLiteral("folder"));
    CheckName(safe, "safe name");
    Check(safe.toUtf8().size() <= 200, "safe name length", safe);
    Check(SafeAttachName(safe, QStringLiteral("folder")) == safe, "safe name not stable", safe);

    const int flags = in.Pick(4);
    const QString clean = CleanFileName(raw, flags);
    for (QChar c : clean)
        Check(c != QLatin1Char('/') && c != QLatin1Char('\\') && c.unicode() >= 0x20, "cleaned name", clean);
    if (!raw.trimmed().isEmpty())
        Check(!ClearSubject(raw).isEmpty(), "subject cleared to nothing", raw);
    return 0;
}
