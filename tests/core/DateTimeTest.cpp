#include "core/DateTime.h"

#include <QLocale>
#include <gtest/gtest.h>

using namespace tessaly::core;

namespace {

class LocaleGuard {
public:
    explicit LocaleGuard(const QLocale& locale) { QLocale::setDefault(locale); }
    ~LocaleGuard() { QLocale::setDefault(m_saved); }

private:
    QLocale m_saved;
};

} // namespace

TEST(DateTime, DayCountConversion)
{
    struct Case {
        double value;
        QDateTime expected;
    };
    const Case cases[] = {
        {1.0, QDateTime(QDate(1899, 12, 31), QTime(0, 0))},
        {45293.5, QDateTime(QDate(2024, 1, 2), QTime(12, 0))},
        {45293.25, QDateTime(QDate(2024, 1, 2), QTime(6, 0))},
        {-1.25, QDateTime(QDate(1899, 12, 29), QTime(6, 0))},
        {36526.999999999, QDateTime(QDate(2000, 1, 2), QTime(0, 0))}, // rounds up to the next midnight
    };
    for (const auto& c : cases) {
        EXPECT_EQ(DateTimeToQDateTime(c.value), c.expected) << c.value;
        if (c.value == std::trunc(c.value * 4) / 4) {
            EXPECT_DOUBLE_EQ(QDateTimeToDateTime(c.expected), c.value) << c.value;
        }
    }
    EXPECT_FALSE(DateTimeToQDateTime(std::nan("")).isValid());
    EXPECT_FALSE(DateTimeToQDateTime(1e300).isValid());
    EXPECT_EQ(QDateTimeToDateTime(QDateTime()), 0.0);
}

TEST(DateTime, FormatInUsersLocale)
{
    const double withTime = QDateTimeToDateTime(QDateTime(QDate(2024, 1, 2), QTime(13, 2, 3)));
    const double midnight = QDateTimeToDateTime(QDateTime(QDate(2024, 1, 2), QTime(0, 0)));
    {
        LocaleGuard guard(QLocale(QLocale::English, QLocale::UnitedStates));
        EXPECT_EQ(FormatDateTime(withTime), QStringLiteral("1/2/24 1:02:03 PM"));
        EXPECT_EQ(FormatDateTime(midnight), QStringLiteral("1/2/24"));
    }
    {
        LocaleGuard guard(QLocale(QLocale::German, QLocale::Germany));
        EXPECT_EQ(FormatDateTime(withTime), QStringLiteral("02.01.24 13:02:03"));
        EXPECT_EQ(FormatDateTime(midnight), QStringLiteral("02.01.24"));
    }
    EXPECT_EQ(FormatDateTime(0), QString());
    EXPECT_EQ(FormatDateTime(-3.5), QString());
}

TEST(DateTime, FiletimeBothWaysAndZeroForAbsent)
{
    const QDateTime leapDay(QDate(2024, 2, 29), QTime(13, 14, 15), Qt::UTC);
    EXPECT_EQ(QDateTimeToFiletime(leapDay), 133536860550000000ULL);
    EXPECT_EQ(FiletimeToQDateTime(133536860550000000ULL), leapDay);
    EXPECT_EQ(FiletimeToQDateTime(116444736000000000ULL), QDateTime::fromMSecsSinceEpoch(0, Qt::UTC));
    EXPECT_FALSE(FiletimeToQDateTime(0).isValid());
    EXPECT_EQ(QDateTimeToFiletime(QDateTime()), 0u);
    // The local date-time is the same instant in this machine's zone.
    EXPECT_EQ(FiletimeToLocal(0), 0);
    EXPECT_EQ(DateTimeToQDateTime(FiletimeToLocal(133536860550000000ULL)), leapDay.toLocalTime());
}
