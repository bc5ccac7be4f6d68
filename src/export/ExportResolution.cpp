#include "export/ExportResolution.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace velum {
namespace {

// 2 × round(side / 2), never below 2, and never beyond what a size holds.
int even(double side)
{
    const double rounded = 2 * std::round(side / 2);
    constexpr double largest = std::numeric_limits<int>::max() - 1;
    if (!(rounded >= 2))
        return 2;
    return static_cast<int>(std::min(rounded, largest));
}

std::optional<QSizeF> usable(const std::optional<QSizeF> &size)
{
    if (size && size->width() >= 1 && size->height() >= 1)
        return size;
    return std::nullopt;
}

} // namespace

QSize canvas(ExportResolution resolution, const std::optional<QSizeF> &source)
{
    const QSizeF size = usable(source).value_or(QSizeF(1920, 1080));
    double longSide = 0;
    switch (resolution) {
    case ExportResolution::source:
        return QSize(even(size.width()), even(size.height()));
    case ExportResolution::uhd4K:
        longSide = 3840;
        break;
    case ExportResolution::hd1080:
        longSide = 1920;
        break;
    case ExportResolution::hd720:
        longSide = 1280;
        break;
    }
    if (size.width() > size.height())
        return QSize(even(longSide), even(longSide * 9 / 16));
    return QSize(even(size.width() * longSide / size.height()), even(longSide));
}

QString label(ExportResolution resolution, const std::optional<QSizeF> &source)
{
    switch (resolution) {
    case ExportResolution::uhd4K:
        return QStringLiteral("4K");
    case ExportResolution::hd1080:
        return QStringLiteral("1080p");
    case ExportResolution::hd720:
        return QStringLiteral("720p");
    case ExportResolution::source:
        break;
    }
    if (const auto text = resolutionText(source))
        return QStringLiteral("Source (%1)").arg(*text);
    return QStringLiteral("Source");
}

std::optional<QString> resolutionText(const std::optional<QSizeF> &size)
{
    if (!usable(size))
        return std::nullopt;
    return QString::number(std::round(size->width()), 'f', 0) + QChar(0x00D7)
           + QString::number(std::round(size->height()), 'f', 0);
}

} // namespace velum
