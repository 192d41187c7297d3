#include "app/apps_table.h"

#include "app/apps_table_model.h"
#include "views/elided_text.h"
#include "views/view_factories.h"

#include <QHeaderView>

#include <algorithm>
#include <array>

using namespace Qt::StringLiterals;

namespace {

constexpr int kLeastHeight = 220;
constexpr int kRowHeight = 24;

struct ColumnSize
{
    int width;
    int least;
};
constexpr std::array<ColumnSize, AppsTableModel::ColumnCount> kColumns{{{370, 140}, {120, 80}, {400, 140}}};

} // namespace

AppsTable::AppsTable(QWidget *parent)
    : QTableView(parent)
    , m_apps(new AppsTableModel(this))
{
    setObjectName(u"table"_s);
    setAccessibleName(u"Приложения"_s);
    setModel(m_apps);
    setMinimumHeight(Scaled(kLeastHeight));
    setItemDelegate(new ElidingDelegate(this));
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setAlternatingRowColors(true);
    setShowGrid(false);
    setWordWrap(false);
    setTabKeyNavigation(false); // Tab leaves the table, as in any list
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    verticalHeader()->hide();
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    verticalHeader()->setDefaultSectionSize(Scaled(kRowHeight));
    layOutColumns();
    connect(selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] {
        const QModelIndexList rows = selectionModel()->selectedRows();
        Q_EMIT chosen(rows.isEmpty() ? -1 : rows.first().row());
    });
}

void AppsTable::choose(int row)
{
    const QSignalBlocker quiet(this);
    if (row < 0)
        selectionModel()->clear();
    else
        selectRow(row);
}

void AppsTable::layOutColumns()
{
    QHeaderView *header = horizontalHeader();
    header->setHighlightSections(false);
    header->setMinimumSectionSize(Scaled(kColumns[AppsTableModel::Version].least));
    for (int column = 0; column < AppsTableModel::ColumnCount; ++column)
        header->resizeSection(column, Scaled(kColumns[static_cast<size_t>(column)].width));
    // Qt knows one least width for all columns only, and would stretch the last one down to it.
    const auto fit = [this, header] {
        int left = viewport()->width();
        for (int column = 0; column < AppsTableModel::ColumnCount; ++column) {
            const int least = Scaled(kColumns[static_cast<size_t>(column)].least);
            const bool last = column == AppsTableModel::ColumnCount - 1;
            header->resizeSection(column, std::max(least, last ? left : header->sectionSize(column)));
            left -= header->sectionSize(column);
        }
    };
    connect(header, &QHeaderView::sectionResized, this, fit);
    connect(header, &QHeaderView::geometriesChanged, this, fit);
}

QModelIndex AppsTable::moveCursor(CursorAction action, Qt::KeyboardModifiers modifiers)
{
    if (action != MoveHome && action != MoveEnd)
        return QTableView::moveCursor(action, modifiers);
    const int column = std::max(0, currentIndex().column()); // the view does not scroll sideways
    return model()->index(action == MoveHome ? 0 : model()->rowCount() - 1, column);
}
