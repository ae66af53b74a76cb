#pragma once

// What a data file holds, as JSON for scripts and tests, and as text.

#include <QJsonObject>
#include <QString>

namespace tessaly::pst {

class TPSTFile;

struct TReportOptions {
    bool Messages = false; // every item with its fields
};

// Opens the file and reports it. Throws ETessalyError when it cannot be
// opened or has no readable folders.
QJsonObject ReportFile(const QString& fileName, const TReportOptions& options);
QJsonObject ReportFile(TPSTFile& file, const TReportOptions& options);

// The same report as indented text.
QString ReportText(const QJsonObject& report);

} // namespace tessaly::pst
