#include "app/apps_table.h"

#include <algorithm>

QModelIndex AppsTable::moveCursor(CursorAction action, Qt::KeyboardModifiers modifiers)
{
    if (action != MoveHome && action != MoveEnd)
        return QTableView::moveCursor(action, modifiers);
    const int column = std::max(0, currentIndex().column()); // the view does not scroll sideways
    return model()->index(action == MoveHome ? 0 : model()->rowCount() - 1, column);
}
