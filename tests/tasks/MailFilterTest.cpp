#include "tasks/MailFilter.h"

#include "../mail/MailTestObjects.h"

#include <gtest/gtest.h>

using namespace tessaly;
using namespace tessaly::tasks;
using tessaly::test::TTestMessage;

namespace {

std::shared_ptr<TTestMessage> Message()
{
    auto m = std::make_shared<TTestMessage>();
    m->subject = QStringLiteral("Invoice 2024-17");
    m->sender = std::make_shared<mail::TMailRecipient>(QStringLiteral("Ann Lee"), QStringLiteral("ann@example.com"));
    m->recipients[mail::mrtTo] = test::Recipients({{"Bob", "bob@example.com"}});
    m->recipients[mail::mrtCC] = test::Recipients({{"Stra\u00dfe GmbH", "office@strasse.de"}});
    m->text = QStringLiteral("Please find the invoice attached.");
    return m;
}

} // namespace

TEST(MailFilter, Allow)
{
    const auto message = Message();
    const struct {
        QString cmd;
        bool allowed;
    } cases[] = {
        {"", true},
        {"subject=invoice", true},
        {"subject=receipt", false},
        {"sender=ANN@EXAMPLE", true},
        {"rcpt=office@", true},            // found in CC
        {"rcpt=carol", false},
        {"body=FIND THE", true},
        {"attach=include", false},
        {"attach=exclude", true},
        {"subject=invoice,sender=bob", false},
    };
    for (const auto& c : cases) {
        TMailFilter filter;
        filter.SetCmd(c.cmd);
        EXPECT_EQ(filter.Allow(*message), c.allowed) << c.cmd.toStdString();
    }
    // Upper case by the locale: "ß" matches "SS".
    TMailFilter german;
    german.SetCmd(QStringLiteral("rcpt=STRASSE"));
    EXPECT_TRUE(german.Allow(*message));

    // A recipient criterion rejects a message without recipients.
    auto lonely = Message();
    lonely->recipients.clear();
    TMailFilter filter;
    filter.SetCmd(QStringLiteral("rcpt=bob"));
    EXPECT_FALSE(filter.Allow(*lonely));
    filter.Enabled = false;
    EXPECT_TRUE(filter.Allow(*lonely));
}

TEST(MailFilter, CmdReadAndWrite)
{
    TMailFilter filter;
    filter.SetCmd(QStringLiteral("subject=invoice,attach=include"));
    EXPECT_TRUE(filter.Enabled);
    EXPECT_EQ(filter.Subject, QStringLiteral("invoice"));
    EXPECT_EQ(filter.Attachments, mfaInclude);
    EXPECT_EQ(filter.Cmd(), QStringLiteral("subject=invoice,attach=include"));

    filter.SetCmd(QStringLiteral("   "));
    EXPECT_FALSE(filter.Enabled);
    EXPECT_EQ(filter.Cmd(), QString());
    EXPECT_EQ(filter.Subject, QStringLiteral("invoice")); // kept

    filter.SetCmd(QStringLiteral("SUBJECT=x,attach=maybe,colour=red"));
    EXPECT_EQ(filter.Subject, QStringLiteral("x"));
    EXPECT_EQ(filter.Attachments, mfaInclude); // unknown word: unchanged

    filter.SetCmd(QStringLiteral("body=a, b,sender=Ann Lee"));
    EXPECT_EQ(filter.Body, QStringLiteral("a")); // a comma always splits
    EXPECT_EQ(filter.Sender, QStringLiteral("Ann Lee"));
    EXPECT_EQ(filter.Cmd(), QStringLiteral("sender=Ann Lee,subject=x,body=a,attach=include"));

    filter.SetCmd(QStringLiteral("rcpt=bob,attach=ALL"));
    EXPECT_EQ(filter.Cmd(), QStringLiteral("sender=Ann Lee,rcpt=bob,subject=x,body=a"));
}

TEST(MailFilter, RecordLevelTest)
{
    const auto message = Message();
    const mail::TMailMsgInfo record(message);
    TMailFilter filter;
    filter.SetCmd(QStringLiteral("rcpt=office,subject=2024"));
    EXPECT_TRUE(filter.AcceptRecord(record));
    filter.SetCmd(QStringLiteral("attach=include"));
    EXPECT_FALSE(filter.AcceptRecord(record));
}
