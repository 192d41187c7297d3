// The table of apps.
#pragma once

#include <QTableView>

/// A table in which rows are chosen, not cells: Home and End lead to the first and the last one. Main thread
/// only.
class AppsTable : public QTableView
{
public:
    using QTableView::QTableView;

protected:
    QModelIndex moveCursor(CursorAction action, Qt::KeyboardModifiers modifiers) override;
};
