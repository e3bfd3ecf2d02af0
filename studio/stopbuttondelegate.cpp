#include "stopbuttondelegate.h"

#include <QApplication>
#include <QBrush>
#include <QPainter>

#include <algorithm>

void StopButtonDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                               const QModelIndex& index) const
{
    QStyleOptionViewItem cell = option;
    initStyleOption(&cell, index);
    const bool hasButton = !cell.text.isEmpty();
    cell.text.clear();
    const QWidget* widget = option.widget;
    QStyle* style = widget ? widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &cell, painter, widget);
    if (!hasButton)
        return;
    const QVariant foreground = index.data(Qt::ForegroundRole);
    const QColor colour = foreground.canConvert<QBrush>() ? foreground.value<QBrush>().color()
                                                          : option.palette.color(QPalette::Text);
    const int side = std::max(6, option.rect.height() * 2 / 5);
    QRect square(0, 0, side, side);
    square.moveCenter(option.rect.center());
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setPen(Qt::NoPen);
    painter->setBrush(colour);
    painter->drawRoundedRect(square, 1.5, 1.5);
    painter->restore();
}
