// A phone's details as text. Plain function, any thread.
#pragma once

#include "device/device_records.h"

#include <QList>
#include <QString>

/// Each label on a line, its value on the next, and an empty line after the pair.
QString DetailsText(const QList<DetailLine> &details);
