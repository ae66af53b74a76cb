#pragma once

// What a data file holds, as JSON for scripts and tests, and as text.

#include <QJsonObject>
#include <QString>
#include <functional>
#include <memory>

namespace tessaly::pst {

class TPSTFile;

struct TReportOptions {
    bool Messages = false; // every item with its fields
};

// Opens the file and reports it. Throws ETessalyError when it cannot be
// opened or has no readable folders.
QJsonObject ReportFile(const QString& fileName, const TReportOptions& options);
QJsonObject ReportFile(TPSTFile& file, const TReportOptions& options);

// Opens the file for a report; throws as ReportFile does.
std::unique_ptr<TPSTFile> OpenForReport(const QString& fileName);

// Writes ReportFile's object as QJsonDocument lays it out indented, nested
// `level` deep (the first line not indented), one folder and one message
// at a time: memory stays flat however large the file is.
void WriteReportJson(TPSTFile& file, const TReportOptions& options, int level,
    const std::function<void(const QByteArray&)>& write);

// The same report as indented text.
QString ReportText(const QJsonObject& report);

} // namespace tessaly::pst
