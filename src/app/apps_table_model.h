// The apps table's data: a view of rows that their owner keeps.
#pragma once

#include "device/device_records.h"

#include <QAbstractTableModel>

/// Three columns (name, version, identifier) over a list of rows that outlives the model. Main thread only.
class AppsTableModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column { Name, Version, Identifier, ColumnCount };

    explicit AppsTableModel(const QList<AppRow> &rows, QObject *parent = nullptr);

    /// Takes over the rows as they are now. To be called whenever they have changed.
    void reload();

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    const QList<AppRow> &m_rows;
    QList<AppRow>
        m_shown; // shares its data with m_rows; differs only between a change and the reload after it
};
