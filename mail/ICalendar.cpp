#include "mail/ICalendar.h"

#include "core/DateTime.h"
#include "core/HtmlText.h"
#include "mail/VCard.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QUuid>

namespace tessaly::mail {

namespace {

// A parameter value: quoted, without the characters a quoted one cannot hold.
QString Parameter(QString value)
{
    value.remove(QLatin1Char('"')).replace(QLatin1Char('\r'), QLatin1Char(' ')).replace(QLatin1Char('\n'), QLatin1Char(' '));
    return QLatin1Char('"') + value + QLatin1Char('"');
}

QString Utc(const QDateTime& when)
{
    return when.toUTC().toString(QStringLiteral("yyyyMMdd'T'HHmmss'Z'"));
}

} // namespace

QByteArray MeetingToICalendar(const IMailMessage& message, const IMailMeeting& meeting)
{
    QByteArray out = "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//Halvorne//Tessaly//EN\r\nMETHOD:PUBLISH\r\nBEGIN:VEVENT\r\n";
    const QDateTime start = meeting.AppoitmentStart() != 0 ? core::DateTimeToQDateTime(meeting.AppoitmentStart()) : QDateTime();
    const QDateTime end = meeting.AppoitmentEnd() != 0 ? core::DateTimeToQDateTime(meeting.AppoitmentEnd()) : QDateTime();
    // The same meeting gives the same UID in every export.
    const QByteArray key = (message.Subject() + QLatin1Char('\n') + (start.isValid() ? Utc(start) : QString()) + QLatin1Char('\n')
        + (message.Sender() ? message.Sender()->EMail() : QString())).toUtf8();
    out += "UID:" + QUuid::createUuidV5(QUuid(QStringLiteral("{5b0c1b6e-6a8c-4b59-9a7e-52f1f0d3a1c4}")), key).toString(QUuid::WithoutBraces).toLatin1()
        + "@tessaly\r\n";
    out += "DTSTAMP:" + Utc(QDateTime::currentDateTimeUtc()).toLatin1() + "\r\n";
    if (start.isValid())
        out += "DTSTART:" + Utc(start).toLatin1() + "\r\n";
    if (end.isValid() && (!start.isValid() || end >= start))
        out += "DTEND:" + Utc(end).toLatin1() + "\r\n";
    if (!message.Subject().isEmpty())
        out += FoldedContentLine(QStringLiteral("SUMMARY:") + ContentLineText(message.Subject()));
    if (!meeting.Location().isEmpty())
        out += FoldedContentLine(QStringLiteral("LOCATION:") + ContentLineText(meeting.Location()));
    QString body = message.Body(mbtText);
    if (body.trimmed().isEmpty())
        body = core::HtmlToPlainText(message.Body(mbtHTML));
    if (!body.trimmed().isEmpty())
        out += FoldedContentLine(QStringLiteral("DESCRIPTION:") + ContentLineText(body.trimmed()));
    const auto person = [](const IMailRecipient& who) {
        QString line;
        if (!who.Name().trimmed().isEmpty())
            line += QStringLiteral(";CN=") + Parameter(who.Name().trimmed());
        return line;
    };
    if (const auto sender = message.Sender(); sender && sender->EMail().contains(QLatin1Char('@')))
        out += FoldedContentLine(QStringLiteral("ORGANIZER") + person(*sender) + QStringLiteral(":mailto:") + sender->EMail().trimmed());
    const struct {
        TMailRecipientType kind;
        const char* role;
    } lists[] = {{mrtTo, ";ROLE=REQ-PARTICIPANT"}, {mrtCC, ";ROLE=OPT-PARTICIPANT"}, {mrtBCC, ";CUTYPE=RESOURCE;ROLE=NON-PARTICIPANT"}};
    for (const auto& list : lists) {
        const auto recipients = message.Recipients(list.kind);
        for (int i = 0; recipients && i < recipients->Count(); ++i) {
            const auto who = recipients->GetRecipient(i);
            if (!who || !who->EMail().contains(QLatin1Char('@')))
                continue;
            out += FoldedContentLine(QStringLiteral("ATTENDEE") + QLatin1String(list.role) + person(*who) + QStringLiteral(":mailto:")
                + who->EMail().trimmed());
        }
    }
    out += "END:VEVENT\r\nEND:VCALENDAR\r\n";
    return out;
}

} // namespace tessaly::mail
