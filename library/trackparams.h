#pragma once

#include <QDate>
#include <QDateTime>
#include <QHash>
#include <QString>
#include <QStringList>

#include <array>

// The playout parameters of one audio file, stored as compact JSON per file path in the
// library database's track_params table. Times are milliseconds from the start of the file.
struct TrackParams {
    qint64 start = 0; // cue-in, 0 = not set
    qint64 end = 0;   // cue-out, <= 0 = play to the real end
    qint64 intro = 0;
    qint64 outro = 0;
    qint64 hookIn = 0;
    qint64 hookOut = 0;
    int fadeIn = -1;         // -1 = engine setting applies
    int mix = -1;            // -1 = not set
    int fadeOut = -1;        // -1 = not set
    qint64 mixStart = -1;    // position at which the next track starts, -1 = not set
    qint64 voiceoverIns = 0; // insert point, 0 = no voiceover
    QString voiceoverSource;
    int voiceoverPosition = 0;
    int voiceoverProbability = 100; // percent
    double voiceoverLevel = 1.0;    // linear gain
    QDate voiceoverNotAfter;
    double level = 1.0; // linear gain
    int rating = 0;     // 0..10 through setTrackRating
    QStringList tags;
    bool disabled = false;
    QDate startDate;
    QDate endDate;
    std::array<quint32, 7> daypart{}; // Monday first; bit h = hour h allowed; all 0 = no limit

    QByteArray toJson() const;
    static TrackParams fromJson(const QByteArray& json);

    static TrackParams load(const QString& filepath);
    // Every stored record by file path, in one query (the scheduler reads a whole library's at once).
    static QHash<QString, TrackParams> loadAll();
    static void save(const QString& filepath, const TrackParams& params);
    static void remove(const QString& filepath);
    static void ensureTable();
    static int trackRating(const QString& filepath);
    static void setTrackRating(const QString& filepath, int rating);
    static bool isDefault(const TrackParams& params);

    bool hasDaypart() const;
    void setDaypartHour(int day, int hour, bool allowed);
    bool isDaypartHourAllowed(int day, int hour) const;
    bool isScheduledAt(const QDateTime& when) const;
    qint64 playableLength(qint64 durationMs) const;
};
