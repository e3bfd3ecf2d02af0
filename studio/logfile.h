#pragma once

#include <QDate>
#include <QFile>
#include <QObject>
#include <QString>

// The station's daily log on disk: every line appended to logs/YYYY-MM-DD.log in the application's
// data location, flushed per line so that a crash loses nothing already shown.
class LogFile : public QObject
{
    Q_OBJECT

public:
    // folder: where the daily files go; empty means "logs" in the application's data location.
    explicit LogFile(const QString& folder = QString(), QObject* parent = nullptr);

    static QString defaultFolder();
    QString folder() const { return m_folder; }
    // The file that lines of the given day go to.
    QString pathFor(const QDate& day) const;

    // Appends "HH:mm:ss  text" to the file of the stamp's day. Returns false when it could not.
    bool append(const QDateTime& stamp, const QString& text);

signals:
    // The file could not be written; reported once until a write succeeds again.
    void writeFailed(const QString& reason);

private:
    bool openFor(const QDate& day);
    void fail(const QString& reason);

    QString m_folder;
    QFile m_file;
    QDate m_day;
    bool m_failing = false;
};
