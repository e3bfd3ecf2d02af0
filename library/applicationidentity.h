#pragma once

#include <QCoreApplication>
#include <QString>

// Every Ondaro program names itself alike: organisation and application "Ondaro", so that all of
// them find the same library database and the same settings (".../Ondaro/Ondaro").
inline void setOndaroIdentity()
{
    QCoreApplication::setOrganizationName(QStringLiteral("Ondaro"));
    QCoreApplication::setApplicationName(QStringLiteral("Ondaro"));
    QCoreApplication::setApplicationVersion(QStringLiteral("1.0.0"));
}
