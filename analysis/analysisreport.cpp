#include "analysisreport.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>

namespace {

double hundredths(double value)
{
    return std::isfinite(value) ? std::round(value * 100.0) / 100.0 : 0.0;
}

QString seconds(qint64 ms)
{
    if (ms < 0)
        return QStringLiteral("-");
    return QString::number(static_cast<double>(ms) / 1000.0, 'f', 3);
}

QString decibels(double value)
{
    return QString::number(hundredths(value), 'f', 2);
}

const QString kSilentNote = QStringLiteral("digital silence: no cue points");

} // namespace

bool AnalysisReport::isSilent(const TrackAnalysis& analysis)
{
    return analysis.error.isEmpty() && analysis.durationMs > 0 && analysis.cueInMs < 0;
}

QByteArray AnalysisReport::jsonLine(const TrackAnalysis& a)
{
    QJsonObject o;
    o.insert(QStringLiteral("path"), a.filePath);
    o.insert(QStringLiteral("error"), a.error.isNull() ? QStringLiteral("") : a.error);
    if (a.error.isEmpty()) {
        o.insert(QStringLiteral("durationMs"), static_cast<double>(a.durationMs));
        o.insert(QStringLiteral("integratedLufs"), hundredths(a.integratedLufs));
        o.insert(QStringLiteral("loudnessRangeLu"), hundredths(a.loudnessRangeLu));
        o.insert(QStringLiteral("truePeakDbtp"), hundredths(a.truePeakDbtp));
        o.insert(QStringLiteral("cueInMs"), static_cast<double>(a.cueInMs));
        o.insert(QStringLiteral("cueOutMs"), static_cast<double>(a.cueOutMs));
        o.insert(QStringLiteral("mixStartMs"), static_cast<double>(a.mixStartMs));
        o.insert(QStringLiteral("gainDb"), hundredths(a.gainDb));
    }
    return QJsonDocument(o).toJson(QJsonDocument::Compact);
}

QString AnalysisReport::tableHeader()
{
    return QStringLiteral("%1 %2 %3 %4 %5 %6 %7 %8  %9")
        .arg(QStringLiteral("Length"), 10)
        .arg(QStringLiteral("LUFS"), 7)
        .arg(QStringLiteral("LRA"), 6)
        .arg(QStringLiteral("dBTP"), 7)
        .arg(QStringLiteral("Cue in"), 9)
        .arg(QStringLiteral("Cue out"), 10)
        .arg(QStringLiteral("Mix start"), 10)
        .arg(QStringLiteral("Gain"), 6)
        .arg(QStringLiteral("File"));
}

QString AnalysisReport::tableRow(const TrackAnalysis& a)
{
    const QString none = QStringLiteral("-");
    if (!a.error.isEmpty()) {
        return QStringLiteral("%1 %2 %3 %4 %5 %6 %7 %8  ")
                   .arg(none, 10)
                   .arg(none, 7)
                   .arg(none, 6)
                   .arg(none, 7)
                   .arg(none, 9)
                   .arg(none, 10)
                   .arg(none, 10)
                   .arg(none, 6) +
               a.filePath + QStringLiteral(" (error: ") + a.error + QLatin1Char(')');
    }
    QString row = QStringLiteral("%1 %2 %3 %4 %5 %6 %7 %8  %9")
                      .arg(seconds(a.durationMs), 10)
                      .arg(decibels(a.integratedLufs), 7)
                      .arg(decibels(a.loudnessRangeLu), 6)
                      .arg(decibels(a.truePeakDbtp), 7)
                      .arg(seconds(a.cueInMs), 9)
                      .arg(seconds(a.cueOutMs), 10)
                      .arg(seconds(a.mixStartMs), 10)
                      .arg(decibels(a.gainDb), 6)
                      .arg(a.filePath);
    if (isSilent(a))
        row += QStringLiteral(" (") + kSilentNote + QLatin1Char(')');
    return row;
}
