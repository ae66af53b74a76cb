#pragma once

// Meetings and appointments as iCalendar (RFC 5545): one VEVENT in a
// VCALENDAR, as calendar programs import it.

#include "mail/MailMsgHTML.h"
#include "mail/MailMsgIntf.h"

#include <QByteArray>

namespace tessaly::mail {

// Start and end in UTC, the subject, the location, the text body, the
// organizer (the sender) and the attendees (required, optional, resources);
// CRLF line ends, lines folded at 75 bytes.
QByteArray MeetingToICalendar(const IMailMessage& message, const IMailMeeting& meeting);

} // namespace tessaly::mail
