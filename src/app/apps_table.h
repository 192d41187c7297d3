// The table of apps.
#pragma once

#include <QTableView>

class AppsTableModel;

/// Shows the apps of its model, with their columns. Rows are chosen, not cells: Home and End lead to the
/// first and the last one. Main thread only.
class AppsTable : public QTableView
{
    Q_OBJECT

public:
    explicit AppsTable(QWidget *parent = nullptr);

    AppsTableModel *apps() const { return m_apps; }
    /// Chooses that shown row and no other; none for -1.
    void choose(int row);

Q_SIGNALS:
    /// The user has chosen this row; -1 for none.
    void chosen(int row);

protected:
    QModelIndex moveCursor(CursorAction action, Qt::KeyboardModifiers modifiers) override;

private:
    void layOutColumns();

    AppsTableModel *m_apps;
};
