// A row that breaks into lines when it is too narrow: with a large font, or in a small window.
#pragma once

#include <QLayout>
#include <QList>

/// Lays its items out from the left at their natural widths, centred vertically in their line; an item that
/// does not fit any more begins a new line. One that can be narrower gives way to those after it. Height
/// depends on width.
class RowLayout : public QLayout
{
    Q_DISABLE_COPY_MOVE(RowLayout)

public:
    RowLayout(QWidget *parent, int spacing);
    ~RowLayout() override;

    void addItem(QLayoutItem *item) override;
    int count() const override;
    QLayoutItem *itemAt(int index) const override;
    QLayoutItem *takeAt(int index) override;
    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;
    QSize sizeHint() const override;
    QSize minimumSize() const override;
    Qt::Orientations expandingDirections() const override { return {}; }
    void setGeometry(const QRect &rect) override;

private:
    int widthFrom(qsizetype index) const;
    int layOut(const QRect &rect, bool apply) const;

    QList<QLayoutItem *> m_items;
};
