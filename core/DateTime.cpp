#include "core/DateTime.h"

#include <QLocale>
#include <cmath>

namespace tessaly::core {

namespace {

const QDate Epoch(1899, 12, 30);
constexpr double MsecsPerDay = 86400000.0;

} // namespace

const QTimeZone& LocalZone()
{
    // Looked up once: local-time conversions through the C library check
    // the zone's file again for every value.
    static const QTimeZone zone = QTimeZone::systemTimeZone();
    return zone;
}

// For negative values the whole part counts days before the epoch and the
// fraction is still the time of day (-1.25 is 1899-12-29 06:00).
QDateTime DateTimeToQDateTime(TDateTime value)
{
    if (!std::isfinite(value) || std::fabs(value) > 3.0e6)
        return {};
    const double days = std::trunc(value);
    const double fraction = std::fabs(value - days);
    qint64 msecs = qint64(std::llround(fraction * MsecsPerDay));
    QDate date = Epoch.addDays(qint64(days));
    if (msecs >= qint64(MsecsPerDay)) {
        date = date.addDays(1);
        msecs = 0;
    }
    return QDateTime(date, QTime::fromMSecsSinceStartOfDay(int(msecs)), LocalZone());
}

namespace {
// 100 ns ticks between 1601-01-01 and 1970-01-01.
constexpr qint64 FiletimeUnixEpoch = 116444736000000000LL;
} // namespace

QDateTime FiletimeToQDateTime(uint64_t filetime)
{
    if (filetime == 0)
        return {};
    return QDateTime::fromMSecsSinceEpoch((qint64(filetime) - FiletimeUnixEpoch) / 10000, Qt::UTC);
}

TDateTime FiletimeToLocal(uint64_t filetime)
{
    const QDateTime utc = FiletimeToQDateTime(filetime);
    return utc.isValid() ? QDateTimeToDateTime(utc.toTimeZone(LocalZone())) : 0;
}

uint64_t QDateTimeToFiletime(const QDateTime& value)
{
    return value.isValid() ? uint64_t(value.toMSecsSinceEpoch() * 10000 + FiletimeUnixEpoch) : 0;
}

TDateTime QDateTimeToDateTime(const QDateTime& value)
{
    if (!value.isValid())
        return 0;
    const double days = double(Epoch.daysTo(value.date()));
    const double fraction = value.time().msecsSinceStartOfDay() / MsecsPerDay;
    return days >= 0 ? days + fraction : days - fraction;
}

// The locale's long time format without its time-zone field: the value is a
// plain local time.
static QString LongTimeFormat(const QLocale& locale)
{
    const QString format = locale.timeFormat(QLocale::LongFormat);
    QString result;
    bool quoted = false;
    for (const QChar c : format) {
        if (c == QLatin1Char('\''))
            quoted = !quoted;
        if (quoted || c != QLatin1Char('t'))
            result += c;
    }
    return result.trimmed();
}

QString FormatDateTime(TDateTime value)
{
    if (!(value > 0))
        return {};
    const QDateTime dt = DateTimeToQDateTime(value);
    if (!dt.isValid())
        return {};
    const QLocale locale;
    QString text = locale.toString(dt.date(), QLocale::ShortFormat);
    if (dt.time() != QTime(0, 0))
        text += QLatin1Char(' ') + locale.toString(dt.time(), LongTimeFormat(locale));
    return text;
}

} // namespace tessaly::core
