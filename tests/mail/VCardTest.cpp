// vCard 4.0 cards of other writers through our reader.

#include "mail/VCard.h"

#include <QDateTime>
#include <gtest/gtest.h>

using namespace tessaly::mail;

// Cards as other programs write 4.0: quoted parameters holding ";" and ":",
// groups, lists in types, URIs with extensions, a date without a year, a
// date with a time, a gender with its identity, pictures as data: URIs in
// base64, percent-encoded and escaped.
TEST(VCard4, ReadsCardsOfOtherWriters)
{
    const QByteArray png = QByteArray("\x89PNG\r\n\x1a\n", 8) + QByteArray(40, '\x05');
    const TVCardContact card("BEGIN:VCARD\r\nVERSION:4.0\r\nFN:Simon Perreault\r\n"
                             "N:Perreault;Simon;;;ing. jr,M.Sc.\r\nBDAY:--0203\r\nANNIVERSARY:20090808T1430-0500\r\n"
                             "GENDER:m;man\r\nLANG;PREF=1:fr\r\nEMAIL;TYPE=work:simon.perreault@viagenie.ca\r\n"
                             "TEL;VALUE=uri;TYPE=\"work,voice\";PREF=1:tel:+1-418-656-9254;ext=102\r\n"
                             "TEL;VALUE=uri;TYPE=\"work,cell,voice,video,text\":tel:+1-418-262-6501\r\n"
                             "ADR;TYPE=work;LABEL=\"Suite D2-630: 2875 boul. Laurier; Quebec\\, QC\":;;2875 boul. Laurier\\, \r\n"
                             " suite D2-630;Quebec;QC;G1V 2M2;Canada\r\n"
                             "item1.URL;TYPE=work:http://www.viagenie.ca/\r\n"
                             "PHOTO;MEDIATYPE=image/png:data:image/png;base64," + png.toBase64() + "\r\n"
                             "END:VCARD\r\n");
    EXPECT_EQ(card.Subject(), QStringLiteral("Simon Perreault"));
    EXPECT_EQ(card.GetField(mcfSurname).toString(), QStringLiteral("Perreault"));
    EXPECT_FALSE(card.GetField(mcfBirthday).isValid()); // no year
    EXPECT_EQ(card.GetField(mcfAnniversary).toDateTime().date(), QDate(2009, 8, 8));
    EXPECT_EQ(card.GetField(mcfGender).toString(), QStringLiteral("M"));
    EXPECT_EQ(card.GetField(mcfEMails).toString(), QStringLiteral("simon.perreault@viagenie.ca"));
    EXPECT_EQ(card.GetField(mcfBusinessPhone).toString(), QStringLiteral("+1-418-656-9254 x102"));
    EXPECT_EQ(card.GetField(mcfMobilePhone).toString(), QStringLiteral("+1-418-262-6501"));
    EXPECT_EQ(card.GetField(mcfBusinessAddress).toString(), QStringLiteral("2875 boul. Laurier, suite D2-630\nG1V 2M2 Quebec QC\nCanada"));
    EXPECT_EQ(card.GetField(mcfWebPage).toString(), QStringLiteral("http://www.viagenie.ca/"));
    EXPECT_EQ(card.GetField(mcfPicture).toByteArray(), png);
    // A tel: URI in capitals, percent-encoded.
    EXPECT_EQ(TVCardContact("BEGIN:VCARD\r\nVERSION:4.0\r\nFN:P\r\nTEL;VALUE=uri;TYPE=home:TEL:+1%20555\r\nEND:VCARD\r\n")
                  .GetField(mcfHomePhone).toString(),
        QStringLiteral("+1 555"));

    const TVCardContact percent("BEGIN:VCARD\r\nVERSION:4.0\r\nFN:P\r\nPHOTO:data:image/gif,GIF89a%01%FF\r\nEND:VCARD\r\n");
    EXPECT_EQ(percent.GetField(mcfPicture).toByteArray(), QByteArray("GIF89a\x01\xFF"));
    const TVCardContact escaped("BEGIN:VCARD\r\nVERSION:4.0\r\nFN:P\r\nPHOTO:data:image/png\\;base64\\," + png.toBase64() + "\r\nEND:VCARD\r\n");
    EXPECT_EQ(escaped.GetField(mcfPicture).toByteArray(), png);
    const TVCardContact link("BEGIN:VCARD\r\nVERSION:4.0\r\nFN:P\r\nPHOTO:http://example.com/p.jpg\r\nGENDER:;it\r\nEND:VCARD\r\n");
    EXPECT_FALSE(link.GetField(mcfPicture).isValid());
    EXPECT_FALSE(link.GetField(mcfGender).isValid());
    // A quote that never closes: the line is still split at its first ":".
    EXPECT_EQ(TVCardContact("BEGIN:VCARD\r\nFN;X-A=\"open:Ann\r\nEND:VCARD\r\n").Subject(), QStringLiteral("Ann"));
}
