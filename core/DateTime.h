#pragma once

#include <QDateTime>
#include <QTimeZone>

namespace tessaly::core {

// Local date and time as a day count since 1899-12-30 with the time of day
// as fraction. 0 means "not set".
using TDateTime = double;

// This machine's time zone, looked up once.
const QTimeZone& LocalZone();

// In LocalZone().
QDateTime DateTimeToQDateTime(TDateTime value);
TDateTime QDateTimeToDateTime(const QDateTime& value);

// FILETIME: 100 ns ticks since 1601-01-01 UTC. An invalid date-time stands
// for 0 (absent) both ways.
QDateTime FiletimeToQDateTime(uint64_t filetime);
uint64_t QDateTimeToFiletime(const QDateTime& value);
// A FILETIME as local date-time in this machine's time zone; 0 for 0.
TDateTime FiletimeToLocal(uint64_t filetime);

// Short date, a blank and the long time in the user's locale; the time is
// left out at exact midnight. Empty for a value of 0 or below.
QString FormatDateTime(TDateTime value);

} // namespace tessaly::core
