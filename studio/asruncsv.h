#pragma once

#include "asrunentry.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

// The as-run log as RFC 4180 CSV: a header row, CRLF line ends, UTF-8; a field holding a comma, a
// quote, CR or LF is quoted with its quotes doubled, so that any title survives a round trip.
namespace asruncsv {

// "Start", "End", "Played (ms)", "Artist", "Title", "File", "Stream", "Ended by".
QStringList header();
QString field(const QString& text);
QByteArray toCsv(const QList<AsRunEntry>& entries);

} // namespace asruncsv

// Writes the entries to `path` in one step (an existing file is replaced only when all was written).
// On failure returns false and, when `error` is given, the reason.
bool exportCsv(const QList<AsRunEntry>& entries, const QString& path, QString* error = nullptr);
