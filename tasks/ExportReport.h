#pragma once

// The machine-readable report of an export run (-report FILE.json): what
// was exported where, when, with what options, the counts in all and per
// folder, and every failure with its message and reason. Field names are
// stable; the README lists them.

#include "tasks/CustomTask.h"

#include <QDateTime>
#include <QJsonObject>
#include <QString>
#include <QStringList>

namespace tessaly::tasks {

struct TExportReport {
    QStringList Sources;  // the data file, or the message files
    QStringList Folders;  // folder paths asked for; empty for the whole file
    QString Destination;
    QString Format;
    QJsonObject Options;
    QDateTime Started;
    QDateTime Ended;
    int ExitCode = 0;
    QString Error;        // why the run could not start or finish
    TCustomTask* Task = nullptr; // the run's entries and counts, once made

    QJsonObject ToJson() const;
    // Written whole under its name (beside it first, then linked in,
    // replacing an older report); false with the reason in `error`.
    bool Save(const QString& fileName, QString* error = nullptr) const;
};

} // namespace tessaly::tasks
