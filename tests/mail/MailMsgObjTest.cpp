#include "MailTestObjects.h"

#include <gtest/gtest.h>

using namespace tessaly::mail;
using namespace tessaly::test;

TEST(MailMsgObj, RecipientCaption)
{
    const struct {
        QString name;
        QString address;
        QString caption;
    } cases[] = {
        {"", "ann@example.com", "ann@example.com"},
        {"ann@example.com", "ann@example.com", "ann@example.com"},
        {"Ann@Example.com", "ann@example.com", "ann@example.com"},
        {"Ann Lee", "ann@example.com", "Ann Lee <ann@example.com>"},
        {"Ann Lee", "", "Ann Lee"},
        {"", "", ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(TMailRecipient(c.name, c.address).Caption(), c.caption)
            << c.name.toStdString() << " / " << c.address.toStdString();
    }
}

TEST(MailMsgObj, ListCaption)
{
    const auto two = Recipients({{"", "a"}, {"", "b"}});
    const auto three = Recipients({{"Ann", "ann@x"}, {"", "bob@x"}, {"Cy", ""}});
    const auto empty = Recipients({});
    const struct {
        std::shared_ptr<TMailRecipientArray> list;
        int maxLen;
        QString caption;
    } cases[] = {
        {two, 0, "a,b"},
        {two, 1, "a,..."},
        {two, 2, "a,..."},
        {two, 3, "a,b"},
        {two, 100, "a,b"},
        {three, 0, "Ann <ann@x>,bob@x,Cy"},
        {three, 12, "Ann <ann@x>,..."},
        {three, 13, "Ann <ann@x>,bob@x,..."},
        {empty, 0, ""},
        {empty, 1, ""},
        {empty, 50, ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.list->Caption(c.maxLen), c.caption) << c.caption.toStdString() << " max " << c.maxLen;
}

TEST(MailMsgObj, ListOffersCaptionInterfaceAndEnumerates)
{
    std::shared_ptr<IMailRecipientList> list = Recipients({{"", "a"}, {"B", "b@x"}, {"", "c"}});
    const auto list2 = std::dynamic_pointer_cast<IMailRecipientList2>(list);
    ASSERT_TRUE(list2);
    EXPECT_EQ(list2->Caption(0), QStringLiteral("a,B <b@x>,c"));
    EXPECT_FALSE(std::dynamic_pointer_cast<IMailAttachList>(list));

    QStringList seen;
    for (const auto& recipient : *list)
        seen << recipient->EMail();
    EXPECT_EQ(seen, (QStringList{"a", "b@x", "c"}));

    auto enumerator = list->GetEnumerator();
    QStringList walked;
    while (enumerator.MoveNext())
        walked << enumerator.GetCurrent()->EMail();
    EXPECT_EQ(walked, seen);
    EXPECT_FALSE(enumerator.MoveNext());
    enumerator.Reset();
    ASSERT_TRUE(enumerator.MoveNext());
    EXPECT_EQ(enumerator.GetCurrent()->EMail(), QStringLiteral("a"));

    auto none = Recipients({})->GetEnumerator();
    EXPECT_FALSE(none.MoveNext());
    EXPECT_EQ(list->GetRecipient(3), nullptr);
    EXPECT_EQ(list->GetRecipient(-1), nullptr);
}

TEST(MailMsgObj, MessageInterfacesByCast)
{
    std::shared_ptr<IMailMessage> message = std::make_shared<TTestMessage>();
    const auto withUid = std::dynamic_pointer_cast<IMailMessage3>(message);
    ASSERT_TRUE(withUid);
    EXPECT_EQ(withUid->UID(), QStringLiteral("7"));
    EXPECT_FALSE(std::dynamic_pointer_cast<IMailMessage4>(message));

    auto attaches = std::make_shared<TTestAttachList>(
        std::vector<std::shared_ptr<IMailAttach>>{std::make_shared<TTestAttach>("x.txt")});
    QStringList names;
    for (const auto& attach : *attaches) {
        names << attach->FileName();
        const auto content = attach->Content();
        ASSERT_TRUE(content);
        EXPECT_EQ(content->pos(), 0);
    }
    EXPECT_EQ(names, QStringList{"x.txt"});
}
