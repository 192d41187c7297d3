#include "app/apps_table_model.h"

#include "core/shown_text.h"

#include <algorithm>

using namespace Qt::StringLiterals;

void AppsTableModel::setApps(const SearchableApps &apps, const QString &filter)
{
    beginResetModel();
    m_apps = apps;
    m_shown = MatchingApps(m_apps, filter);
    endResetModel();
}

void AppsTableModel::setFilter(const QString &text)
{
    beginResetModel();
    m_shown = MatchingApps(m_apps, text);
    endResetModel();
}

AppRow AppsTableModel::row(int index) const
{
    return index >= 0 && index < rowCount() ? m_apps.rows[m_shown[static_cast<size_t>(index)]] : AppRow();
}

int AppsTableModel::indexOf(const QString &id) const
{
    const auto found = std::find_if(m_shown.begin(), m_shown.end(), [&](qsizetype position) {
        return !id.isEmpty() && m_apps.rows[position].id == id;
    });
    return found == m_shown.end() ? -1 : static_cast<int>(found - m_shown.begin());
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
    const AppRow &row = m_apps.rows[m_shown[static_cast<size_t>(index.row())]];
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
