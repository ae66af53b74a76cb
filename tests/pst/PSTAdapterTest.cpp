#include "pst/PSTFile.h"
#include "pst/PSTMessage.h"
#include "pst/SmtpResolver.h"

#include "PSTTestUtil.h"
#include "TestUtil.h"
#include "core/MessageBus.h"
#include "platform/AddressBook.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QThread>
#include <atomic>
#include <gtest/gtest.h>
#include <thread>

using namespace tessaly;
using namespace tessaly::pst;
using tessaly::test::FindFolder;
using tessaly::test::TestData;

namespace {

const QString TerryEx = QStringLiteral("/O=MICROSOFT/OU=Northamerica/cn=Recipients/cn=terrymah1");

// An address book that counts its calls and can take its time.
class TBookDouble : public platform::IAddressBook {
public:
    explicit TBookDouble(int delayMs = 0) : m_delay(delayMs) {}
    std::optional<QString> FindSMTP(const QString& address) override
    {
        ++calls;
        asked.push_back(address);
        if (m_delay > 0)
            QThread::msleep(m_delay);
        if (address.compare(TerryEx, Qt::CaseInsensitive) == 0)
            return QStringLiteral("terry@example.com");
        return std::nullopt;
    }
    std::atomic<int> calls {0};
    std::vector<QString> asked;

private:
    int m_delay;
};

class BookGuard {
public:
    explicit BookGuard(std::shared_ptr<platform::IAddressBook> book) { platform::SetProcessAddressBook(std::move(book)); }
    ~BookGuard() { platform::SetProcessAddressBook(nullptr); }
};

struct TSample {
    TPSTFile file {TestData(QStringLiteral("pst/sample1.pst"))};
    std::shared_ptr<TPSTMailItem> Item()
    {
        return std::dynamic_pointer_cast<TPSTMailItem>(FindFolder(file.RootFolder(), QStringLiteral("Sample1"))->GetItem(0));
    }
};

} // namespace

TEST(PSTAdapter, MessageThroughTheInterfaces)
{
    auto book = std::make_shared<TBookDouble>();
    BookGuard guard(book);
    TSample sample;
    const auto item = sample.Item();
    ASSERT_TRUE(item);
    const adapter::TPSTMailMessage message(item, false);
    EXPECT_EQ(message.Subject(), QStringLiteral("Here is a sample message"));
    EXPECT_EQ(message.UID(), QString::number(item->ID()));
    EXPECT_EQ(message.PSTFileName(), TestData(QStringLiteral("pst/sample1.pst")));
    EXPECT_EQ(message.SenderIP(), QString());
    EXPECT_EQ(message.Body(mail::mbtText), item->Body().Text);
    EXPECT_EQ(message.Date(mail::mdModification), item->Date(pdModification));

    // Not deferred: the Exchange addresses resolve at once, and stay resolved.
    const auto to = message.Recipients(mail::mrtTo);
    ASSERT_TRUE(to);
    ASSERT_EQ(to->Count(), 1);
    const auto terry = to->GetRecipient(0);
    EXPECT_EQ(terry->Caption(), QStringLiteral("Terry Mahaffey"));
    EXPECT_EQ(terry->EMail(), QStringLiteral("terry@example.com"));
    EXPECT_EQ(terry->EMailType(), mail::matEXResolved);
    const int calls = book->calls;
    EXPECT_EQ(to->GetRecipient(0)->EMail(), QStringLiteral("terry@example.com"));
    EXPECT_EQ(book->calls, calls); // not asked a second time
    EXPECT_EQ(item->Recipients(rlTo).GetItem(0).AddrType, QStringLiteral("EXR")); // changed in place

    const auto attaches = message.Attaches();
    ASSERT_EQ(attaches->Count(), 1);
    const auto attach = attaches->GetAttach(0);
    EXPECT_EQ(attach->FileName(), QStringLiteral("leah_thumper.jpg"));
    EXPECT_EQ(attach->Content()->size(), 93142);
    EXPECT_EQ(std::dynamic_pointer_cast<mail::IMailAttach2>(attach)->Size(), 96808);
    EXPECT_EQ(attach->ContentDisposition(), QString());
    EXPECT_EQ(attach->AsMailMessage(), nullptr); // a picture is no message
}

TEST(PSTAdapter, SmtpRecipientsNeverReachTheBook)
{
    auto book = std::make_shared<TBookDouble>();
    BookGuard guard(book);
    TPSTFile file(TestData(QStringLiteral("pst/enron.pst")));
    const auto item = std::dynamic_pointer_cast<TPSTMailItem>(FindFolder(file.RootFolder(), QStringLiteral("Systems"))->GetItem(4));
    const adapter::TPSTMailMessage message(item, false);
    const auto to = message.Recipients(mail::mrtTo);
    ASSERT_EQ(to->Count(), 2);
    for (const auto& recipient : *to)
        EXPECT_EQ(recipient->EMailType(), mail::matSMTP);
    EXPECT_EQ(book->calls, 0);
}

TEST(PSTAdapter, DeferredRecipientsAppearOnceFilled)
{
    auto book = std::make_shared<TBookDouble>();
    BookGuard guard(book);
    TSample sample;
    const auto item = sample.Item();
    const adapter::TPSTMailMessage deferred(item, true);
    EXPECT_EQ(deferred.Recipients(mail::mrtTo), nullptr);
    deferred.ResolveRecipients();
    const auto to = deferred.Recipients(mail::mrtTo);
    ASSERT_TRUE(to);
    EXPECT_EQ(to->GetRecipient(0)->EMailType(), mail::matEX); // deferred: not resolved on reading
    EXPECT_EQ(book->calls, 0);
}

TEST(PSTAdapter, HelperResolvesEverything)
{
    auto book = std::make_shared<TBookDouble>();
    BookGuard guard(book);
    TSample sample;
    const TPSTItemHelper helper(sample.Item());
    helper.ResolveFields();
    const auto item = sample.Item();
    EXPECT_TRUE(item->RecipientsResolved());
    EXPECT_EQ(item->Recipients(rlTo).GetItem(0).EMail, QStringLiteral("terry@example.com"));
    // The sender's address differs in case only; the book matches it all the same.
    EXPECT_EQ(item->Sender().AddrType, QStringLiteral("EXR"));
}

TEST(PSTAdapter, WrappedByItemClass)
{
    TPSTFile file(TestData(QStringLiteral("pst/pstextractortest@outlook.com.ost")));
    adapter::TPSTMailFolder root(file.RootFolder());
    EXPECT_EQ(root.Caption(), QStringLiteral("IPM_SUBTREE"));
    std::shared_ptr<mail::IMailFolder> calendar;
    for (int i = 0; i < root.Count(); ++i)
        if (root.GetFolder(i)->Caption() == QLatin1String("Calendar"))
            calendar = root.GetFolder(i);
    ASSERT_TRUE(calendar);
    EXPECT_EQ(calendar->Messages()->Count(), 9);
    const auto meeting = std::dynamic_pointer_cast<adapter::TPSTMeetingMessage>(calendar->Messages()->GetMail(0));
    ASSERT_TRUE(meeting);
    EXPECT_GT(meeting->AppoitmentEnd(), meeting->AppoitmentStart());
    EXPECT_TRUE(std::any_cast<TPSTFolder*>(calendar->MessageData()) != nullptr);
}

TEST(PSTAdapter, ProxyAddresses)
{
    EXPECT_EQ(platform::PrimarySmtp({QStringLiteral("smtp:alias@x.org"), QStringLiteral("SMTP:main@x.org")}),
        std::optional<QString>(QStringLiteral("main@x.org")));
    EXPECT_EQ(platform::PrimarySmtp({QStringLiteral("smtp:alias@x.org"), QStringLiteral("X400:c=US")}), std::nullopt);
    EXPECT_EQ(platform::PrimarySmtp({}), std::nullopt);
    platform::TDataFileAddressBook book;
    book.Add(QStringLiteral("/o=Org/cn=ann"), {QStringLiteral("smtp:ann@x.org")});
    EXPECT_EQ(book.FindSMTP(QStringLiteral("/o=org/CN=Ann")), std::nullopt);
    book.AddSmtp(QStringLiteral("/o=Org/cn=bob"), QStringLiteral("bob@x.org"));
    EXPECT_EQ(book.FindSMTP(QStringLiteral("/O=ORG/CN=BOB")), std::optional<QString>(QStringLiteral("bob@x.org")));
}

TEST(SmtpResolver, WorksInTheBackgroundAndAnnounces)
{
    auto book = std::make_shared<TBookDouble>(20);
    TSample sample;
    const auto item = sample.Item();
    item->FillRecipients();

    QObject listener;
    std::atomic<int> updates = 0;
    core::TMessageBus::Instance().Subscribe(&listener, core::Topic::PstUpdate, [&](const QVariant&) { ++updates; });

    TPSTSmtpResolver resolver(book);
    const TRecordRef record = TRecordRef::Recipient(item, rlTo, 0);
    resolver.Resolve(record);
    resolver.Resolve(TRecordRef::Sender(item));
    EXPECT_EQ(resolver.Pending(), 2);
    resolver.Start();

    // Readers on this thread see either the old pair or the new one.
    const QDeadlineTimer deadline(10000);
    while (updates == 0 && !deadline.hasExpired()) {
        {
            QReadLocker locker(&RecordLock());
            const bool resolved = *record.addrType == QLatin1String("EXR");
            EXPECT_EQ(*record.email, resolved ? QStringLiteral("terry@example.com") : TerryEx);
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    EXPECT_EQ(updates, 1);
    EXPECT_FALSE(resolver.IsRunning());
    EXPECT_EQ(item->Recipients(rlTo).GetItem(0).EMail, QStringLiteral("terry@example.com"));
    EXPECT_EQ(resolver.Cached(TerryEx), std::optional<QString>(QStringLiteral("terry@example.com")));

    // A record already cached resolves at once, without the task.
    TSample again;
    const auto other = again.Item();
    other->FillRecipients();
    const int calls = book->calls;
    resolver.Resolve(TRecordRef::Recipient(other, rlTo, 0));
    EXPECT_EQ(resolver.Pending(), 0);
    EXPECT_EQ(other->Recipients(rlTo).GetItem(0).AddrType, QStringLiteral("EXR"));
    EXPECT_EQ(book->calls, calls);
}

TEST(SmtpResolver, StopEndsAfterTheRecordAtHand)
{
    auto book = std::make_shared<TBookDouble>(200);
    std::vector<std::unique_ptr<TSample>> samples;
    TPSTSmtpResolver resolver(book);
    for (int i = 0; i < 10; ++i) {
        samples.push_back(std::make_unique<TSample>());
        const auto item = samples.back()->Item();
        item->FillRecipients();
        resolver.Resolve(TRecordRef::Recipient(item, rlTo, 0));
    }
    resolver.Start();
    while (book->calls == 0)
        QThread::msleep(5);
    QElapsedTimer timer;
    timer.start();
    resolver.Stop();
    EXPECT_LT(timer.elapsed(), 1000); // one record of 200 ms, not ten
    EXPECT_FALSE(resolver.IsRunning());
    EXPECT_LE(book->calls, 2);
    EXPECT_EQ(resolver.Pending(), 0);
}
