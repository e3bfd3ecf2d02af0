#pragma once

#include <QStyledItemDelegate>

// Draws the playlist's STOP column as a small square in the column's own colour instead of the
// "⏹" character, which many desktop fonts lack (it would show as an empty box). Cells whose text is
// empty (command rows) stay empty.
class StopButtonDelegate : public QStyledItemDelegate
{
    Q_OBJECT

public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
};
