#include "export/ExportPreferences.h"

#include <QVariant>

namespace velum::ExportPreferences {
namespace {

QSettings applicationSettings() { return QSettings(QStringLiteral("Velum"), QStringLiteral("Velum")); }

} // namespace

bool includeRestorableCuts(const QSettings &settings)
{
    const QVariant value = settings.value(QLatin1String(includeRestorableCutsKey));
    if (value.typeId() == QMetaType::Bool)
        return value.toBool();
    // A text settings file gives back a stored boolean as its text.
    if (value.typeId() == QMetaType::QString) {
        const QString text = value.toString();
        if (text == QLatin1String("false"))
            return false;
    }
    return true;
}

bool includeRestorableCuts()
{
    const QSettings settings = applicationSettings();
    return includeRestorableCuts(settings);
}

void setIncludeRestorableCuts(QSettings &settings, bool include)
{
    settings.setValue(QLatin1String(includeRestorableCutsKey), include);
}

void setIncludeRestorableCuts(bool include)
{
    QSettings settings = applicationSettings();
    setIncludeRestorableCuts(settings, include);
}

} // namespace velum::ExportPreferences
