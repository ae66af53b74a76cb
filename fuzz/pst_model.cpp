// The object model on whole data files, as the viewer and the export use it:
// the file opened (8-bit files once more in another code page), the store
// and its special folders, the folder tree, every item through the message
// interfaces and rendered as the preview renders it, the fields of mail,
// meetings and contacts, attachments with their data, attached messages,
// Exchange senders and recipients resolved, and the report tessaly-inspect
// prints. Everything within fixed bounds.

#include "core/Exceptions.h"
#include "message_walk.h"
#include "pst/PSTFile.h"
#include "pst/PSTMessage.h"
#include "pst/PSTReport.h"

#include <QDir>
#include <QFile>
#include <QTemporaryFile>
#include <cstdint>
#include <vector>

namespace {

using namespace tessaly;
using namespace tessaly::pst;

constexpr int MaxFolders = 500, MaxItems = 1000, MaxAttachments = 64, MaxDepth = 4;

void WalkItem(const std::shared_ptr<TPSTDetailItem>& item, int& items, int depth);

void WalkAttachments(const TPSTDetailItem& item, int& items, int depth)
{
    const TAttachList& attaches = item.Attaches();
    const int count = std::min(attaches.Count(), MaxAttachments);
    for (int i = 0; i < count; ++i) {
        const auto attach = attaches.GetAttach(i);
        if (!attach)
            continue;
        (void)attach->FileName();
        (void)attach->ContentID();
        (void)attach->ContentType();
        (void)attach->ContentLocation();
        (void)attach->Size();
        (void)attach->ContentBytes();
        attach->Clear();
        if (const auto content = attach->Content())
            while (!content->read(4099).isEmpty()) {
            }
        if (const auto inner = attach->AsMailItem(); inner && depth < MaxDepth)
            WalkItem(inner, items, depth + 1);
    }
}

void WalkItem(const std::shared_ptr<TPSTDetailItem>& item, int& items, int depth)
{
    if (++items > MaxItems)
        return;
    (void)item->HasAttachments();
    (void)item->ItemType();
    (void)item->MessageSize();
    if (const auto contact = std::dynamic_pointer_cast<TPSTContactItem>(item))
        for (int field = 0; field < mail::cfCount; ++field)
            (void)contact->Field(field);
    if (const auto mail = std::dynamic_pointer_cast<TPSTMailItem>(item)) {
        mail->ResolveFields();
        (void)mail->Body();
        for (auto kind : {pdSubmit, pdDelivery, pdCreation, pdModification})
            (void)mail->Date(kind);
        for (int list = rlOriginator; list <= rlOther; ++list) {
            (void)mail->Recipients(list).Caption(200);
            (void)mail->Recipients(list).EMails(200);
            for (int i = 0; i < mail->Recipients(list).Count(); ++i)
                ResolveNow(TRecordRef::Recipient(mail, list, i));
        }
        ResolveNow(TRecordRef::Sender(mail));
        if (const auto meeting = std::dynamic_pointer_cast<TPSTMeetingItem>(item)) {
            (void)meeting->AppoitmentStart();
            (void)meeting->AppoitmentEnd();
            (void)meeting->Location();
        }
    }
    WalkAttachments(*item, items, depth);
    // The same item as every consumer sees it.
    if (const auto message = adapter::WrapItem(item, depth == 0)) {
        if (const auto* prepare = dynamic_cast<const mail::IMailPreparePreview*>(message.get()))
            prepare->ResolveRecipients();
        if (const auto* meeting = dynamic_cast<const mail::IMailMeeting*>(message.get())) {
            (void)meeting->AppoitmentStart();
            (void)meeting->Location();
        }
        WalkMessage(*message);
    }
}

void WalkFile(TPSTFile& file)
{
    if (TPSTMessageStore* store = file.MessageStore())
        for (int kind = fkInbox; kind <= fkOther; ++kind)
            (void)store->GetFolderKind(store->FolderID(TPSTFolderKind(kind)));
    TPSTRootFolder* root = file.RootFolder();
    if (!root)
        return;
    int folders = 0, items = 0;
    std::vector<TPSTFolder*> pending{root};
    while (!pending.empty() && folders < MaxFolders && items < MaxItems) {
        TPSTFolder* folder = pending.back();
        pending.pop_back();
        ++folders;
        (void)folder->Name();
        (void)folder->Kind();
        (void)folder->ContainerClass();
        const int count = folder->ItemCount();
        for (int i = 0; i < count && items < MaxItems; ++i) {
            std::shared_ptr<TPSTDetailItem> item;
            try {
                item = folder->GetItem(i);
            } catch (const std::out_of_range&) {
                break;
            }
            if (item)
                WalkItem(item, items, 0);
        }
        folder->ClearItems(true);
        // The folder as the message list sees it.
        const adapter::TPSTMailFolder view(folder);
        (void)view.Caption();
        if (const auto list = view.Messages(); list && list->Count() > 0)
            (void)list->GetMail(0);
        for (int i = 0; i < folder->FolderCount(); ++i)
            if (TPSTFolder* sub = folder->GetFolder(i))
                pending.push_back(sub);
    }
}

QString InputPath()
{
    static QTemporaryFile file(QDir::tempPath() + QStringLiteral("/fuzz_pst_model_XXXXXX.pst"));
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
    {
        TPSTFile file(path);
        if (!file.IsOpen())
            return 0;
        (void)file.IsOST();
        (void)file.AsciiCodePage();
        WalkFile(file);
        // An 8-bit file read again in another code page, as "File language" does.
        if (!file.Is64Bit() && file.SetAsciiCodePage(1251))
            if (TPSTRootFolder* root = file.RootFolder())
                for (int i = 0; i < root->FolderCount(); ++i)
                    if (TPSTFolder* sub = root->GetFolder(i))
                        (void)sub->Name();
    }
    try {
        TPSTFile file(path);
        (void)ReportFile(file, TReportOptions{true});
    } catch (const core::ETessalyError&) {
    }
    return 0;
}
