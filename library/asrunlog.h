#pragma once

#include "asrunentry.h"

#include <QDate>
#include <QDateTime>
#include <QList>
#include <QString>

// The as-run log in the library database: one row per item that went on air. Every operation runs
// on the connection of the calling thread (LibraryConnection); a failure is logged through lcLibrary
// and gives a neutral result.
class AsRunLog
{
public:
    // Creates the table and its index on started_at; running it again changes nothing.
    static bool ensureTable();
    // The new row's id, 0 on failure. The end columns keep their defaults until recordEnd.
    static qint64 recordStart(const AsRunEntry& entry);
    static bool recordEnd(qint64 id, const QDateTime& endedAt, qint64 playedMs, const QString& endedBy);
    static bool updateTitle(qint64 id, const QString& title);
    // Rows whose start lies in [from, to), oldest first.
    static QList<AsRunEntry> entriesBetween(const QDateTime& from, const QDateTime& to);
    // The rows started on that local day.
    static QList<AsRunEntry> entriesOn(const QDate& day);

    // How times are stored: ISO 8601 local time with milliseconds, so that text order is time order.
    static QString timeText(const QDateTime& when);
    static QDateTime timeFromText(const QString& text);
};
