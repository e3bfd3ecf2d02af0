#pragma once

#include <QPlainTextEdit>
#include <QString>

class QDateTime;

// The engine's and the window's lines, newest at the bottom, each with its time of day. Holds the
// last few thousand lines so that a long day does not grow without bound.
class LogPane : public QPlainTextEdit
{
    Q_OBJECT

public:
    static constexpr int maximumLines = 5000;

    explicit LogPane(QWidget* parent = nullptr);

    void appendLine(const QDateTime& stamp, const QString& text);
    // Every line now held, in order.
    QStringList lines() const;
};
