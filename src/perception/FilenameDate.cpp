#include "perception/ShootingOrder.h"

#include <QDate>
#include <QTimeZone>

namespace velum::FilenameDate {

namespace {

bool isDigit(QChar c)
{
    return c.unicode() >= u'0' && c.unicode() <= u'9';
}

// The value of the digits in [begin, end), or 0 when any is not a digit.
int number(QStringView name, qsizetype begin, qsizetype end)
{
    int value = 0;
    for (qsizetype i = begin; i < end; ++i) {
        if (!isDigit(name[i]))
            return 0;
        value = value * 10 + (name[i].unicode() - u'0');
    }
    return value;
}

} // namespace

std::optional<QDateTime> publishedAt(QStringView name)
{
    qsizetype run = 0;
    while (run < name.size() && isDigit(name[run]))
        ++run;

    int year = 0;
    int month = 0;
    int day = 0;
    if (run == 8) {
        year = number(name, 0, 4);
        month = number(name, 4, 6);
        day = number(name, 6, 8);
    } else if (run == 4) {
        if (name.size() < 10 || name[4] != u'-' || !isDigit(name[5]) || !isDigit(name[6]) || name[7] != u'-'
            || !isDigit(name[8]) || !isDigit(name[9]))
            return std::nullopt;
        if (name.size() > 10 && isDigit(name[10]))
            return std::nullopt;
        year = number(name, 0, 4);
        month = number(name, 5, 7);
        day = number(name, 8, 10);
    } else {
        return std::nullopt;
    }

    const int latestYear = QDateTime::currentDateTimeUtc().date().year() + 1;
    if (year < 2005 || year > latestYear)
        return std::nullopt;
    const QDate date(year, month, day);
    if (!date.isValid())
        return std::nullopt;
    return QDateTime(date, QTime(0, 0), QTimeZone::utc());
}

} // namespace velum::FilenameDate
