#include "logpane.h"

#include <QDateTime>
#include <QFontDatabase>
#include <QTextBlock>

LogPane::LogPane(QWidget* parent) : QPlainTextEdit(parent)
{
    setReadOnly(true);
    setMaximumBlockCount(maximumLines);
    setLineWrapMode(QPlainTextEdit::NoWrap);
    setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    setPlaceholderText(QStringLiteral("Log"));
}

void LogPane::appendLine(const QDateTime& stamp, const QString& text)
{
    appendPlainText(stamp.toString(QStringLiteral("HH:mm:ss")) + QStringLiteral("  ") + text);
}

QStringList LogPane::lines() const
{
    QStringList all;
    for (QTextBlock block = document()->begin(); block.isValid(); block = block.next())
        all << block.text();
    return all;
}
