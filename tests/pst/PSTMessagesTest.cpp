#include "pst/PSTFile.h"
#include "pst/PSTProperty.h"

#include "PSTTestUtil.h"
#include "TestUtil.h"
#include "core/Rtf.h"

#include <QDateTime>
#include <gtest/gtest.h>

using namespace tessaly::pst;
using tessaly::core::DateTimeToQDateTime;
using tessaly::test::FindFolder;
using tessaly::test::TestData;

namespace {


QString Utc(tessaly::core::TDateTime date)
{
    return date > 0 ? DateTimeToQDateTime(date).toUTC().toString(Qt::ISODate) : QString();
}

template <class F>
void ForEachItem(TPSTFolder* folder, F f)
{
    for (int i = 0; i < folder->ItemCount(); ++i)
        if (const auto item = folder->GetItem(i))
            f(*item);
    for (int i = 0; i < folder->FolderCount(); ++i)
        ForEachItem(folder->GetFolder(i), f);
}

} // namespace

// Values as pffexport writes them for the same items.
TEST(PSTMessages, KnownMessages)
{
    const struct {
        const char* file;
        const char* folder;
        int index;
        const char* subject;
        const char* sender;
        const char* to;
        const char* cc;
        const char* submit;
        std::vector<std::pair<QString, int>> attachments; // name, bytes
    } cases[] = {
        {"pst/enron.pst", "Systems", 1, "eRequest", "Carl Carter <Carl Carter/NA/Enron@Enron>",
            "TK Lohman,Lorraine Lindberg", "Michelle Lokay", "2001-01-30T12:44:00Z",
            {{"Navigating eRequest.doc", 93696}}},
        {"pst/enron.pst", "Systems", 4, "Sending customer information from ENVISION",
            "Lee  Dennis <Dennis.Lee@ENRON.com>", "Bastida  Nancy,Brostad  Karen", "Dietz  Rick",
            "2001-09-06T22:23:34Z", {{"envision_printing.doc", 20992}}},
        {"pst/sample1.pst", "Sample1", 0, "Here is a sample message", "Terry Mahaffey", "Terry Mahaffey", "",
            "2010-03-15T17:12:05Z", {{"leah_thumper.jpg", 93142}}},
        {"pst/pstextractortest@outlook.com.ost", "Inbox", 6, "text, jpg, pdf attachments", "Ed <epfromer@gmail.com>",
            "pstextractortest@outlook.com", "", "2021-08-12T20:26:12Z",
            {{"Clinometer Usage.pdf", 87069},
                {"primoz-roglic-of-slovenia-and-team-jumbo-visma-red-leader-news-photo-1628610563.jpg", 79653},
                {"text.txt", 18}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.file) + " " + c.subject);
        TPSTFile file(TestData(QLatin1String(c.file)));
        TPSTFolder* folder = FindFolder(file.RootFolder(), QLatin1String(c.folder));
        ASSERT_NE(folder, nullptr);
        const auto mail = std::dynamic_pointer_cast<TPSTMailItem>(folder->GetItem(c.index));
        ASSERT_TRUE(mail);
        EXPECT_EQ(mail->Subject(), QLatin1String(c.subject));
        EXPECT_EQ(mail->Sender().Caption, QLatin1String(c.sender));
        EXPECT_EQ(mail->Recipients(rlTo).Caption(INT_MAX), QLatin1String(c.to));
        EXPECT_EQ(mail->Recipients(rlCC).Caption(INT_MAX), QLatin1String(c.cc));
        EXPECT_EQ(Utc(mail->Date(pdSubmit)), QLatin1String(c.submit));
        EXPECT_TRUE(mail->RecipientsResolved());
        ASSERT_EQ(mail->Attaches().Count(), int(c.attachments.size()));
        EXPECT_TRUE(mail->HasAttachments());
        for (int i = 0; i < mail->Attaches().Count(); ++i) {
            const auto attach = mail->Attaches().GetAttach(i);
            ASSERT_TRUE(attach);
            EXPECT_EQ(attach->FileName(), c.attachments[size_t(i)].first);
            const auto content = attach->Content();
            EXPECT_EQ(content->pos(), 0);
            EXPECT_EQ(content->size(), c.attachments[size_t(i)].second);
            EXPECT_GE(attach->Size(), c.attachments[size_t(i)].second); // the record counts more than the data
        }
    }
}

TEST(PSTMessages, ExchangeSenderShownByNameAndRecipientFields)
{
    TPSTFile file(TestData(QStringLiteral("pst/sample1.pst")));
    const auto mail = std::dynamic_pointer_cast<TPSTMailItem>(FindFolder(file.RootFolder(), QStringLiteral("Sample1"))->GetItem(0));
    ASSERT_TRUE(mail);
    EXPECT_EQ(mail->Sender().AddrType, QStringLiteral("EX"));
    EXPECT_EQ(mail->Sender().Caption, QStringLiteral("Terry Mahaffey"));
    EXPECT_TRUE(mail->Sender().EMail.startsWith(QStringLiteral("/O=MICROSOFT/")));
    const TRecipientList& to = mail->Recipients(rlTo);
    ASSERT_EQ(to.Count(), 1);
    EXPECT_EQ(to.GetItem(0).AddrType, QStringLiteral("EX"));
    EXPECT_EQ(to.GetItem(0).RecipientDisplayName, QStringLiteral("Terry Mahaffey"));
    EXPECT_EQ(to.GetItem(0).EMail, QStringLiteral("/O=MICROSOFT/OU=Northamerica/cn=Recipients/cn=terrymah1"));
    EXPECT_EQ(mail->Recipients(rlOriginator).Count(), 0);
    EXPECT_EQ(mail->Recipients(rlOther).Count(), 0);
    EXPECT_EQ(mail->MessageClass(), QStringLiteral("IPM.Note"));
    EXPECT_TRUE(mail->Body().Text.startsWith(QStringLiteral("With a sample attachment. It\u2019s my daughter")))
        << mail->Body().Text.toStdString();
    EXPECT_TRUE(mail->Body().HTML.contains(QStringLiteral("<html"), Qt::CaseInsensitive));
}

TEST(PSTMessages, EmbeddedMessageThroughAsMailItem)
{
    TPSTFile file(TestData(QStringLiteral("pst/submessage.pst")));
    const auto mail =
        std::dynamic_pointer_cast<TPSTMailItem>(FindFolder(file.RootFolder(), QStringLiteral("submessage"))->GetItem(0));
    ASSERT_TRUE(mail);
    EXPECT_EQ(mail->Subject(), QStringLiteral("This is a message which has an embedded message attached"));
    const auto attach = mail->Attaches().GetAttach(0);
    ASSERT_TRUE(attach);
    const auto embedded = attach->AsMailItem();
    ASSERT_TRUE(embedded);
    EXPECT_EQ(embedded->Subject(), QStringLiteral("This is an embedded message"));
    EXPECT_EQ(attach->FileName(), QStringLiteral("This is an embedded message"));
    EXPECT_TRUE(attach->ContentBytes().isEmpty());
    EXPECT_EQ(embedded->Owner(), nullptr);
    EXPECT_EQ(embedded->Index(), -1);
    EXPECT_EQ(embedded->Sender().Caption, QStringLiteral("Terry Mahaffey"));
    EXPECT_FALSE(embedded->Body().Text.isEmpty());
}

TEST(PSTMessages, MeetingsInTheCalendar)
{
    TPSTFile file(TestData(QStringLiteral("pst/pstextractortest@outlook.com.ost")));
    TPSTFolder* calendar = FindFolder(file.RootFolder(), QStringLiteral("Calendar"));
    ASSERT_NE(calendar, nullptr);
    const auto meeting = std::dynamic_pointer_cast<TPSTMeetingItem>(calendar->GetItem(0));
    ASSERT_TRUE(meeting);
    EXPECT_EQ(meeting->Subject(), QStringLiteral("repeats every monday for 10 weeks"));
    EXPECT_EQ(Utc(meeting->AppoitmentStart()), QStringLiteral("2021-08-09T17:00:00Z"));
    EXPECT_EQ(Utc(meeting->AppoitmentEnd()), QStringLiteral("2021-08-09T18:00:00Z"));
    EXPECT_EQ(meeting->Location(), QString());

    // Meeting requests in a mail folder are meetings too.
    int meetings = 0;
    ForEachItem(FindFolder(file.RootFolder(), QStringLiteral("Inbox")), [&](const TPSTDetailItem& item) {
        if (dynamic_cast<const TPSTMeetingItem*>(&item))
            ++meetings;
    });
    EXPECT_EQ(meetings, 3);
}

// libpff decompresses RTF bodies itself; ours must give the same bytes.
TEST(PSTMessages, RtfDecompressionAgreesWithLibpff)
{
    TPSTFile file(TestData(QStringLiteral("pst/pstextractortest@outlook.com.ost")));
    int compared = 0;
    ForEachItem(file.RootFolder(), [&](const TPSTDetailItem& item) {
        const QByteArray compressed = ReadBinary(item.Props(), 0x1009);
        const auto* mail = dynamic_cast<const TPSTMailItem*>(&item);
        if (compressed.isEmpty() || !mail)
            return;
        EXPECT_EQ(tessaly::core::DecompressRtf(compressed), mail->Body().RTF) << mail->Subject().toStdString();
        ++compared;
    });
    EXPECT_EQ(compared, 161);
}

TEST(PSTMessages, RecipientListCaptions)
{
    TRecipientList list;
    list.Add({QStringLiteral("Ann"), {}, QStringLiteral("SMTP"), QStringLiteral("ann@x.org"), 1, {}});
    list.Add({QStringLiteral("Bob"), {}, QStringLiteral("SMTP"), QStringLiteral("bob@x.org"), 1, {}});
    list.Add({QStringLiteral("Cy"), {}, QStringLiteral("EX"), QStringLiteral("/o=x/cn=cy"), 1, {}});
    const struct {
        int maxChars;
        QString caption;
        QString emails;
    } cases[] = {
        {INT_MAX, "Ann,Bob,Cy", "ann@x.org,bob@x.org,/o=x/cn=cy"},
        {0, "Ann", "ann@x.org"},
        {4, "Ann,Bob", "ann@x.org"},  // stops after the entry that passes the limit
        {8, "Ann,Bob,Cy", "ann@x.org"},
        {10, "Ann,Bob,Cy", "ann@x.org,bob@x.org"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(list.Caption(c.maxChars), c.caption) << c.maxChars;
        EXPECT_EQ(list.EMails(c.maxChars), c.emails) << c.maxChars;
    }
    EXPECT_EQ(TRecipientList().Caption(10), QString());
}

TEST(PSTMessages, AttachmentNames)
{
    const struct {
        bool message;
        QString display, subject, longName, shortName;
        int index;
        QString expected;
    } cases[] = {
        {false, "", "", "Report 2024.xlsx", "REPORT~1.XLS", 0, "Report 2024.xlsx"},
        {false, "", "", "", "REPORT~1.XLS", 1, "REPORT~1.XLS"},
        {false, "ignored", "ignored", "", "", 0, "attach 0"},
        {false, "", "", "", "", 3, "attach 3"},
        {true, "Fwd: hello", "hello", "x.msg", "", 0, "Fwd: hello"},
        {true, "", "hello", "x.msg", "", 0, "hello"},
        {true, "", "", "x.msg", "", 2, "attach 2"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(AttachFileName(c.message, c.display, c.subject, c.longName, c.shortName, c.index), c.expected)
            << c.expected.toStdString();
}
