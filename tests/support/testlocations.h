#pragma once

#include <QString>
#include <QVariant>

// Where a test program keeps its settings and store: private folders, never a real user's.
namespace ondarotest {

// Qt's test locations, under this organisation and application name.
void useTestLocations(const QString& organisation, const QString& application);

// Settings as INI files in `dir`, the locations in Qt's test folders under `application`, and
// every key cleared so each test starts from the defaults.
void useTemporarySettings(const QString& dir, const QString& application);

// HOME and XDG_CONFIG_HOME (dir/config) point into `dir`, for this process and the programs it
// starts.
void useTemporaryHome(const QString& dir);

// Writes one setting and flushes it to disk, so that a program started next reads it.
void setSetting(const QString& key, const QVariant& value);

} // namespace ondarotest
