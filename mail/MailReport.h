#pragma once

// What a single message file holds, as JSON (the shape tessaly-inspect
// prints for the items of a data file).

#include "mail/MailMsgIntf.h"

#include <QJsonObject>

namespace tessaly::mail {

QJsonObject MessageReport(const IMailMessage& message, int depth = 0);

// Reads the file through TFileMailMsgRequest; throws what it throws.
QJsonObject ReportMessageFile(const QString& fileName);

} // namespace tessaly::mail
