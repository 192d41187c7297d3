// The installed apps as the table shows them: all of them, and those that pass the search.
#pragma once

#include "device/installed_apps.h"

#include <QAbstractTableModel>

#include <vector>

/// Three columns (name, version, identifier); owns the apps and the filter. Main thread only.
class AppsTableModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column { Name, Version, Identifier, ColumnCount };

    using QAbstractTableModel::QAbstractTableModel;

    /// Takes the place of the former apps and of the filter. Resets the model.
    void setApps(const SearchableApps &apps, const QString &filter);
    /// Shows the apps whose name or identifier holds `text`; all when it is empty. Resets the model.
    void setFilter(const QString &text);

    /// All apps, whatever the filter.
    const QList<AppRow> &apps() const { return m_apps.rows; }
    /// The app in a shown row; an empty one when there is no such row.
    AppRow row(int index) const;
    /// The first shown row with this identifier; -1 when there is none.
    int indexOf(const QString &id) const;

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    SearchableApps m_apps;
    std::vector<qsizetype> m_shown; // positions in m_apps
};
