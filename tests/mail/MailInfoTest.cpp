#include "mail/MailInfo.h"

#include "MailTestObjects.h"

#include <QLocale>
#include <gtest/gtest.h>

using namespace tessaly::mail;
using namespace tessaly::test;
using tessaly::core::QDateTimeToDateTime;

namespace {

class MailInfoTest : public ::testing::Test {
protected:
    void SetUp() override { QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates)); }
    void TearDown() override { QLocale::setDefault(m_saved); }

    static std::shared_ptr<TTestMessage> FullMessage()
    {
        auto m = std::make_shared<TTestMessage>();
        m->sender = std::make_shared<TMailRecipient>("Ann Lee", "ann@example.com");
        m->subject = QStringLiteral("Quarterly figures");
        m->recipients[mrtTo] = Recipients({{"", "bob@example.com"}, {"Cy", "cy@example.com"}});
        m->recipients[mrtCC] = Recipients({{"Dee", ""}});
        m->dates[mdDelivery] = QDateTimeToDateTime(QDateTime(QDate(2024, 3, 5), QTime(9, 30, 15)));
        m->dates[mdCreation] = QDateTimeToDateTime(QDateTime(QDate(2024, 3, 4), QTime(0, 0)));
        m->headers = QStringLiteral("Subject: Quarterly figures\r\n");
        m->text = QStringLiteral("Hello");
        return m;
    }

    QLocale m_saved;
};

} // namespace

TEST_F(MailInfoTest, ValuesAndTexts)
{
    TMailMsgInfo info(FullMessage());
    const struct {
        TMailInfo field;
        QString text;
    } cases[] = {
        {mifSender, "Ann Lee <ann@example.com>"},
        {mifSubject, "Quarterly figures"},
        {mifRecipientTo, "bob@example.com,Cy <cy@example.com>"},
        {mifRecipientCC, "Dee"},
        {mifRecipientBCC, ""},
        {mifDateClientSubmit, ""},
        {mifDateDelivery, "3/5/24 9:30:15 AM"},
        {mifDateCreation, "3/4/24"},
        {mifDateModification, ""},
        {mifAttaches, ""},
        {mifPriority, ""},
        {mifHeaders, "Subject: Quarterly figures\r\n"},
        {mifBody, "Hello"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(info.Str(c.field), c.text) << int(c.field);

    EXPECT_EQ(info.Value(mifDateDelivery).toDateTime(), QDateTime(QDate(2024, 3, 5), QTime(9, 30, 15)));
    EXPECT_FALSE(info.Value(mifDateClientSubmit).toDateTime().isValid());
    EXPECT_EQ(info.Value(mifAttaches), QVariant(false));
    EXPECT_EQ(info.Value(mifRecipientBCC), QVariant(QString()));
}

TEST_F(MailInfoTest, AttachmentsMarkOnlyWithoutDetail)
{
    auto message = FullMessage();
    TMailMsgInfo info(message);

    message->attaches = std::make_shared<TTestAttachList>(std::vector<std::shared_ptr<IMailAttach>>{});
    EXPECT_EQ(info.Str(mifAttaches), QString());
    EXPECT_EQ(info.Value(mifAttaches), QVariant(false));

    message->attaches = std::make_shared<TTestAttachList>(std::vector<std::shared_ptr<IMailAttach>>{
        std::make_shared<TTestAttach>("report.pdf"), std::make_shared<TTestAttach>("photo, 1.jpg")});
    EXPECT_EQ(info.Value(mifAttaches), QVariant(true));
    EXPECT_EQ(info.Str(mifAttaches), QStringLiteral("W"));
    info.InDetail = true;
    EXPECT_EQ(info.Str(mifAttaches), QStringLiteral("report.pdf,photo, 1.jpg"));
}

TEST_F(MailInfoTest, MissingMessageAndSender)
{
    TMailMsgInfo none;
    EXPECT_TRUE(none.Value(mifSubject).isNull());
    EXPECT_EQ(none.Str(mifSender), QString());
    EXPECT_EQ(none.Str(mifDateDelivery), QString());

    auto message = std::make_shared<TTestMessage>();
    TMailMsgInfo info(message);
    EXPECT_TRUE(info.Value(mifSender).isNull());
    EXPECT_EQ(info.Str(mifSender), QString());
    EXPECT_EQ(info.Str(mifRecipientTo), QString());
    EXPECT_EQ(info.Str(mifDateDelivery), QString()); // not a date in 1899
}
