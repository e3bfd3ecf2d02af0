#include "testlocations.h"

#include <QCoreApplication>
#include <QFile>
#include <QSettings>
#include <QStandardPaths>

namespace ondarotest {

void useTestLocations(const QString& organisation, const QString& application)
{
    QStandardPaths::setTestModeEnabled(true);
    QCoreApplication::setOrganizationName(organisation);
    QCoreApplication::setApplicationName(application);
}

void useTemporarySettings(const QString& dir, const QString& application)
{
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, dir);
    QSettings::setDefaultFormat(QSettings::IniFormat);
    useTestLocations(QStringLiteral("OndaroTest"), application);
    QSettings().clear();
}

void useTemporaryHome(const QString& dir)
{
    qputenv("HOME", QFile::encodeName(dir));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(dir + QStringLiteral("/config")));
}

void setSetting(const QString& key, const QVariant& value)
{
    QSettings settings;
    settings.setValue(key, value);
    settings.sync();
}

} // namespace ondarotest
