// The data-file writer on folders and messages built from the input: texts
// of every kind (lone surrogates included), bodies, recipients, attachments
// large and small, attached messages, named properties, either message order
// and every block encoding. The file is read back with our reader and every
// value must come back byte for byte; a difference aborts.

#include "fuzz_input.h"
#include "pstfile/PSTWriter.h"
#include "pstfile/Reader.h"

#include <QDateTime>
#include <QDir>
#include <QTemporaryFile>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <vector>

namespace {

using namespace tessaly::pstfile;

void Check(bool ok, const char* what)
{
    if (!ok) {
        std::fprintf(stderr, "written data file reads back different: %s\n", what);
        std::abort();
    }
}

// Texts as a property holds them: UTF-16LE. MAPI strings end at their NUL,
// so the texts given to the writer hold none.
QString Clean(QString text)
{
    text.remove(QChar(0));
    return text;
}

QString Text(TFuzzInput& in, int max) { return Clean(in.Text(max)); }

QByteArray Utf16(const QString& text)
{
    QByteArray out;
    for (QChar c : text)
        out.append(char(c.unicode() & 0xFF)).append(char(c.unicode() >> 8));
    return out;
}

// A subject starts with SOH and the length of its prefix ("RE: ") when it
// carries the marker; compared without it.
QByteArray Unmarked(const QByteArray& subject)
{
    return subject.size() >= 4 && subject[0] == 1 && subject[1] == 0 ? subject.mid(4) : subject;
}

QDateTime Time(TFuzzInput& in)
{
    // Whole seconds from 1601 on; FILETIME keeps them exactly.
    const qint64 seconds = qint64(in.Long()) * 16 + in.Pick(16);
    return QDateTime(QDate(1601, 1, 1), QTime(0, 0), Qt::UTC).addSecs(seconds);
}

QUuid PropertySet(TFuzzInput& in)
{
    switch (in.Pick(4)) {
    case 0: return PSETID_Address();
    case 1: return PSETID_Appointment();
    case 2: return PS_PUBLIC_STRINGS();
    default: {
        const QByteArray b = in.Bytes(16).leftJustified(16, '\0');
        return QUuid::fromRfc4122(b);
    }
    }
}

// The number of a named property: any, or one of a few near the ones the
// writer registers itself, so that names meet again and ids are contended.
uint32_t NamedNumber(TFuzzInput& in)
{
    static const uint32_t Near[] = {pid::Email1Address, pid::Location, 0x8000, 0x8001, 0xC000, 0xBFFF};
    return in.Bool() ? Near[in.Pick(int(std::size(Near)))] : in.Long();
}

// Properties of any message or attachment, beside the ones their helpers set.
void AddProperties(TFuzzInput& in, TPSTPropertyBag& bag)
{
    static const uint16_t Strings[] = {pid::ConversationTopic, pid::InternetMessageId, pid::TransportHeaders,
        pid::DisplayTo, pid::DisplayCc, pid::MessageClass, pid::AttachContentId, pid::AttachContentLocation};
    static const uint16_t Longs[] = {pid::Importance, pid::Priority, pid::Sensitivity, pid::MessageCodepage};
    static const uint16_t Times[] = {pid::ClientSubmitTime, pid::DeliveryTime, pid::CreationTime,
        pid::LastModificationTime};
    const int count = in.Pick(6);
    for (int i = 0; i < count; ++i) {
        switch (in.Pick(6)) {
        case 0: bag.SetString(Strings[in.Pick(std::size(Strings))], Text(in, 80)); break;
        case 1: bag.SetLong(Longs[in.Pick(std::size(Longs))], int32_t(in.Long())); break;
        case 2: bag.SetTime(Times[in.Pick(std::size(Times))], Time(in)); break;
        // Binary values in an id range that nothing else uses, small or
        // large enough for a subnode.
        case 3: bag.SetBinary(uint16_t(0x6800 + in.Pick(0x100)), in.Pick(4) ? in.Bytes(64) : in.Blob(12000)); break;
        case 4: bag.SetNamedString(PropertySet(in), NamedNumber(in), Text(in, 40)); break;
        default: bag.SetNamedTime(PropertySet(in), NamedNumber(in), Time(in)); break;
        }
    }
}

std::shared_ptr<TPSTMessage> Message(TFuzzInput& in, int depth)
{
    auto m = std::make_shared<TPSTMessage>();
    m->SetString(pid::Subject, Text(in, 100));
    if (in.Bool())
        m->SetSender(Text(in, 40), in.Bool() ? QStringLiteral("SMTP") : QStringLiteral("EX"), Text(in, 60), Text(in, 40));
    const bool large = in.Pick(8) == 0;
    m->SetBodies(Clean(large ? QString::fromUtf8(in.Blob(30000)) : in.Text(400)), in.Bytes(300),
        large ? in.Blob(9000) : in.Bytes(200));
    const int recipients = in.Pick(5);
    for (int i = 0; i < recipients; ++i)
        m->AddRecipient(in.Pick(6), Text(in, 40), Text(in, 8), Text(in, 60), Text(in, 40));
    const int attachments = in.Pick(4);
    for (int i = 0; i < attachments; ++i) {
        if (depth < 2 && in.Pick(4) == 0) {
            TPSTAttachment& a = m->AddEmbedded(Message(in, depth + 1));
            AddProperties(in, a);
            continue;
        }
        const QString name = Text(in, 60);
        const QByteArray data = in.Pick(3) == 0 ? in.Blob(20000) : in.Bytes(100);
        TPSTAttachment& a = m->AddAttachment(name, data, Text(in, 30));
        AddProperties(in, a);
    }
    AddProperties(in, *m);
    return m;
}

// The values a property bag was given, the last one of each named property.
std::map<std::pair<QUuid, uint32_t>, const TNamedProperty*> LastNamed(const TPSTPropertyBag& bag)
{
    std::map<std::pair<QUuid, uint32_t>, const TNamedProperty*> last;
    for (const TNamedProperty& named : bag.Named())
        last[{named.set, named.lid}] = &named;
    return last;
}

void CompareBag(const TPstFile& file, const TProperties& props, const TPSTPropertyBag& bag, bool message)
{
    Check(props.IsValid(), "properties unreadable");
    for (const TProp& p : bag.Props()) {
        const auto e = props.FindRaw(TagId(p.tag));
        Check(e.has_value(), "property missing");
        Check(e->type == TagType(p.tag), "property type");
        const auto v = props.Value(*e);
        Check(v.has_value(), "property value unreadable");
        if (message && TagId(p.tag) == pid::Subject)
            Check(Unmarked(*v) == Unmarked(p.value), "subject");
        else
            Check(*v == p.value, "property value");
    }
    for (const auto& [key, named] : LastNamed(bag)) {
        bool found = false;
        for (const TPropEntry& e : props.Entries()) {
            const TNamedId* id = e.id >= 0x8000 ? file.NameMap().Find(e.id) : nullptr;
            if (!id || id->isString || id->guid != named->set || id->lid != named->lid)
                continue;
            Check(!found, "named property twice");
            found = true;
            Check(e.type == named->type, "named property type");
            const auto v = props.Value(e);
            Check(v && *v == named->value, "named property value");
        }
        Check(found, "named property missing");
    }
}

void CompareMessage(const TPstFile& file, const TMessage& read, const TPSTMessage& written)
{
    CompareBag(file, read.Properties(), written, true);

    const auto recipients = read.Recipients();
    Check(recipients.size() == written.recipients.size(), "recipient count");
    for (size_t i = 0; i < recipients.size(); ++i)
        CompareBag(file, recipients[i], written.recipients[i], false);

    Check(read.AttachmentCount() == written.attachments.size(), "attachment count");
    for (size_t i = 0; i < written.attachments.size(); ++i) {
        const TPSTAttachment& w = written.attachments[i];
        const auto a = read.OpenAttachment(i);
        Check(a != nullptr, "attachment unreadable");
        CompareBag(file, a->Properties(), w, false);
        Check(a->Method() == (w.embedded ? 5u : 1u), "attachment method");
        const auto inner = a->Embedded();
        Check((inner != nullptr) == (w.embedded != nullptr), "attached message");
        if (inner) {
            CompareMessage(file, *inner, *w.embedded);
            continue;
        }
        if (w.data.isEmpty()) {
            Check(a->DataSize() <= 0, "data of an empty attachment");
            continue;
        }
        Check(a->DataSize() == w.data.size(), "attachment size");
        // In parts of an odd size, across the blocks.
        QByteArray data(w.data.size(), '\0');
        for (qint64 at = 0; at < data.size();) {
            const qint64 n = a->ReadData(at, data.data() + at, std::min<qint64>(3001, data.size() - at));
            Check(n > 0, "attachment data unreadable");
            at += n;
        }
        Check(data == w.data, "attachment data");
    }
}

QString OutputPath()
{
    static QTemporaryFile file(QDir::tempPath() + QStringLiteral("/fuzz_pst_writer_XXXXXX.pst"));
    static const bool opened = file.open();
    return opened ? file.fileName() : QString();
}

struct TFolderPlan {
    uint32_t parent = 0;
    QString name, containerClass;
    std::vector<uint32_t> children; // the ones added here
    std::vector<std::shared_ptr<TPSTMessage>> messages;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString path = OutputPath();
    if (path.isEmpty())
        return 0;
    TFuzzInput in(data, size);
    TPSTWriterOptions options;
    options.order = in.Bool() ? pmoArrival : pmoTree;
    static const uint8_t Crypts[] = {CryptNone, CryptPermute, CryptCyclic};
    options.cryptMethod = Crypts[in.Pick(3)];
    const QString storeName = Text(in, 40);

    std::map<uint32_t, TFolderPlan> folders;
    std::vector<uint32_t> targets; // folders that take messages
    {
        TPSTWriter writer(path, storeName, QUuid::createUuid(), options);
        for (auto special : {psfTopOfStore, psfInbox, psfOutbox, psfSentItems, psfDeletedItems, psfDrafts})
            targets.push_back(writer.SpecialFolder(special));
        const int newFolders = in.Pick(6);
        for (int i = 0; i < newFolders; ++i) {
            const uint32_t parent = targets[size_t(in.Pick(int(targets.size())))];
            TFolderPlan plan;
            plan.parent = parent;
            plan.name = Text(in, 60);
            static const char* const Classes[] = {"IPF.Note", "IPF.Contact", "IPF.Appointment", "", "IPF.Task"};
            const int pick = in.Pick(6);
            plan.containerClass = pick < 5 ? QString::fromLatin1(Classes[pick]) : Text(in, 30);
            const uint32_t nid = writer.AddFolder(parent, plan.name, plan.containerClass);
            Check(!folders.count(nid) && nid != parent, "new folder id");
            folders[parent].children.push_back(nid);
            folders[nid].parent = parent;
            folders[nid].name = plan.name;
            folders[nid].containerClass = plan.containerClass;
            targets.push_back(nid);
            if (in.Pick(8) == 0) {
                folders[nid].name = Text(in, 60);
                writer.RenameFolder(nid, folders[nid].name);
            }
        }
        const int messages = in.Pick(7);
        for (int i = 0; i < messages; ++i) {
            const uint32_t folder = targets[size_t(in.Pick(int(targets.size())))];
            auto message = Message(in, 0);
            writer.AddMessage(folder, *message);
            folders[folder].messages.push_back(std::move(message));
        }
        writer.Finish();
        Check(writer.MessageCount() == messages, "message count of the writer");
    }

    const auto file = TPstFile::Open(path);
    CompareBag(*file, file->Store(), [&] {
        TPSTPropertyBag expected;
        expected.SetString(pid::DisplayName, storeName);
        return expected;
    }(), false);
    for (const auto& [nid, plan] : folders) {
        const TProperties props = file->Properties(nid);
        Check(props.IsValid(), "folder unreadable");
        // Folders added here carry the name and class they were given.
        if (plan.parent) {
            const auto name = props.Bytes(pid::DisplayName);
            Check(plan.name.isEmpty() ? !name : name && *name == Utf16(plan.name), "folder name");
            const auto containerClass = props.Bytes(pid::ContainerClass);
            Check(plan.containerClass.isEmpty() ? !containerClass : containerClass && *containerClass == Utf16(plan.containerClass),
                "container class");
        }
        // Sub-folders added here appear in the order they were added.
        const std::vector<uint32_t> sub = file->SubFolders(nid);
        size_t next = 0;
        for (uint32_t child : sub)
            if (next < plan.children.size() && child == plan.children[next])
                ++next;
        Check(next == plan.children.size(), "sub-folders");
        if (plan.parent)
            Check(sub == plan.children, "sub-folders of a new folder");
        // The folder's items, in the order they were added.
        const std::vector<uint32_t> contents = file->Contents(nid);
        Check(contents.size() == plan.messages.size(), "items of a folder");
        Check(file->ContentCount(nid) == plan.messages.size(), "item count of a folder");
        for (size_t i = 0; i < contents.size(); ++i) {
            const auto message = file->OpenMessage(contents[i]);
            Check(message != nullptr, "message unreadable");
            CompareMessage(*file, *message, *plan.messages[i]);
        }
    }
    Check(file->Ndb().Problems().isEmpty(), "damage reported in a written file");
    return 0;
}
