// The data-file reader on whole files: opens the input and reads everything
// it can reach, folders, tables, every property (typed and raw), recipients,
// attachments with their data, and attached messages, within fixed bounds.

#include "pstfile/Reader.h"

#include <QDir>
#include <QFile>
#include <QTemporaryFile>
#include <cstdint>
#include <set>
#include <vector>

namespace {

using namespace tessaly::pstfile;

constexpr int MaxFolders = 2000, MaxItems = 4000, MaxAttachments = 64, MaxDepth = 8;
constexpr qint64 MaxValue = 1 << 20;

void ReadProperties(const TProperties& props)
{
    for (const auto& e : props.Entries()) {
        if (const auto v = props.Value(e, MaxValue))
            (void)props.DecodeString(e, *v);
        (void)props.ValueNode(e);
        (void)props.Find(e.id);
    }
    for (uint16_t id : {pid::Subject, pid::DisplayName, pid::MessageClass, pid::Location, pid::Email1Address})
        (void)props.String(id);
    (void)props.Int32(pid::MessageFlags);
    (void)props.Bool(pid::HasAttach);
    (void)props.Filetime(pid::ClientSubmitTime);
    (void)props.Binary(pid::RecordKey);
}

void WalkMessage(const TMessage& message, int& items, int depth)
{
    if (++items > MaxItems)
        return;
    ReadProperties(message.Properties());
    for (const auto& row : message.Recipients())
        ReadProperties(row);
    for (const auto& row : message.AttachmentRows())
        ReadProperties(row);
    const size_t count = std::min<size_t>(message.AttachmentCount(), MaxAttachments);
    for (size_t i = 0; i < count; ++i) {
        const auto attachment = message.OpenAttachment(i);
        if (!attachment)
            continue;
        ReadProperties(attachment->Properties());
        (void)attachment->Method();
        if (const auto inner = attachment->Embedded()) {
            if (depth < MaxDepth)
                WalkMessage(*inner, items, depth + 1);
            continue;
        }
        // The data in parts of odd sizes, then past its end.
        const qint64 size = std::min(attachment->DataSize(), MaxValue);
        char buffer[4099];
        for (qint64 at = 0, n; at < size && (n = attachment->ReadData(at, buffer, sizeof buffer)) > 0; at += n) {
        }
        (void)attachment->ReadData(attachment->DataSize() + 1, buffer, 1);
    }
}

QString InputPath()
{
    static QTemporaryFile file(QDir::tempPath() + QStringLiteral("/fuzz_pst_reader_XXXXXX.pst"));
    static const bool opened = file.open();
    return opened ? file.fileName() : QString();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString path = InputPath();
    {
        QFile out(path);
        if (path.isEmpty() || !out.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return 0;
        out.write(reinterpret_cast<const char*>(data), qint64(size));
    }
    std::shared_ptr<TPstFile> file;
    try {
        file = TPstFile::Open(path);
    } catch (const EPstFileError&) {
        return 0;
    }
    (void)file->NameMap().Size();
    ReadProperties(file->Store());
    int items = 0;
    std::vector<uint32_t> stack{nidRootFolder};
    std::set<uint32_t> seen;
    while (!stack.empty() && int(seen.size()) < MaxFolders && items < MaxItems) {
        const uint32_t folder = stack.back();
        stack.pop_back();
        if (!seen.insert(folder).second)
            continue;
        ReadProperties(file->Properties(folder));
        (void)file->ContentCount(folder);
        for (uint32_t nid : file->Contents(folder)) {
            if (items >= MaxItems)
                break;
            if (const auto message = file->OpenMessage(nid))
                WalkMessage(*message, items, 0);
        }
        for (uint32_t child : file->SubFolders(folder))
            stack.push_back(child);
    }
    (void)file->Ndb().Problems();
    return 0;
}
