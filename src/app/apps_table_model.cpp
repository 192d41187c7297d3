#include "app/apps_table_model.h"

#include "app/shown_text.h"

using namespace Qt::StringLiterals;

AppsTableModel::AppsTableModel(const QList<AppRow> &rows, QObject *parent)
    : QAbstractTableModel(parent)
    , m_rows(rows)
    , m_shown(rows)
{
}

void AppsTableModel::reload()
{
    beginResetModel();
    m_shown = m_rows;
    endResetModel();
}

int AppsTableModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_shown.size());
}

int AppsTableModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant AppsTableModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || role != Qt::DisplayRole)
        return {};
    const AppRow &row = m_shown[index.row()];
    switch (index.column()) {
    case Name:
        return ShownName(row.name);
    case Version:
        return ShownName(row.version);
    default:
        return ShownName(row.id);
    }
}

QVariant AppsTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal)
        return {};
    if (role == Qt::TextAlignmentRole)
        return QVariant::fromValue(Qt::AlignLeft | Qt::AlignVCenter);
    if (role != Qt::DisplayRole)
        return {};
    switch (section) {
    case Name:
        return u"Приложение"_s;
    case Version:
        return u"Версия"_s;
    default:
        return u"Идентификатор"_s;
    }
}
