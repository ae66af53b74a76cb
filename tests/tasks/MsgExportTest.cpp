#include "mail/FileMailMsg.h"
#include "mail/MsgWriter.h"
#include "pst/PSTFile.h"
#include "pst/PSTMessage.h"
#include "tasks/MailPSTTask.h"

#include "TestUtil.h"

#include <QBuffer>
#include <gtest/gtest.h>

using namespace tessaly;
using tessaly::test::TestData;

namespace {

int CountOf(const std::shared_ptr<mail::IMailRecipientList>& list)
{
    return list ? list->Count() : 0;
}

} // namespace

// Items of data files written as .msg files (through the model the data-file
// writer stores) and read back by our reader.
TEST(MsgExport, DataFileItemsReadBackAsRead)
{
    int compared = 0, embedded = 0;
    for (const char* name : {"pst/submessage.pst", "pst/sample1.pst", "pst/test_unicode.pst", "pst/test_ansi.pst", "pst/enron.pst"}) {
        pst::TPSTFile file(TestData(QLatin1String(name)));
        ASSERT_TRUE(file.IsOpen()) << name;
        std::vector<pst::TPSTFolder*> folders{file.RootFolder()};
        while (!folders.empty()) {
            pst::TPSTFolder* folder = folders.back();
            folders.pop_back();
            for (int i = 0; i < folder->FolderCount(); ++i)
                folders.push_back(folder->GetFolder(i));
            for (int i = 0; i < std::min(folder->ItemCount(), 20); ++i) {
                const auto item = folder->GetItem(i);
                const auto source = item ? pst::adapter::WrapItem(item, false) : nullptr;
                if (!source || std::dynamic_pointer_cast<mail::IMailContact>(source))
                    continue;
                SCOPED_TRACE(std::string(name) + ": " + source->Subject().toStdString());
                QBuffer buffer;
                buffer.setData(mail::TMsgWriter(tasks::ToPSTMessage(*source)).SaveToBytes());
                buffer.open(QIODevice::ReadOnly);
                const auto read = mail::TFileMailMsgRequest(buffer).Message();
                ASSERT_TRUE(read);
                EXPECT_EQ(read->Subject(), source->Subject());
                const auto sender = source->Sender();
                if (sender && !sender->Name().isEmpty()) {
                    ASSERT_TRUE(read->Sender());
                    EXPECT_EQ(read->Sender()->Name(), sender->Name());
                }
                for (const auto kind : {mail::mrtTo, mail::mrtCC, mail::mrtBCC})
                    EXPECT_EQ(CountOf(read->Recipients(kind)), CountOf(source->Recipients(kind))) << kind;
                EXPECT_EQ(read->Body(mail::mbtText).trimmed(), source->Body(mail::mbtText).trimmed());
                const auto attaches = source->Attaches();
                const auto readAttaches = read->Attaches();
                ASSERT_EQ(readAttaches ? readAttaches->Count() : 0, attaches ? attaches->Count() : 0);
                for (int a = 0; attaches && a < attaches->Count(); ++a) {
                    const auto attach = attaches->GetAttach(a);
                    if (attach->AsMailMessage()) {
                        ++embedded;
                        EXPECT_TRUE(readAttaches->GetAttach(a)->AsMailMessage());
                    }
                }
                ++compared;
            }
        }
    }
    EXPECT_GT(compared, 10);
    EXPECT_GT(embedded, 0); // submessage.pst holds attached messages
}
