// Under which name a model is sold.
#pragma once

#include <QString>

/// "iPhone 13 mini (iPhone14,4)" for the phone's own `productType` "iPhone14,4"; a type that is not known
/// here (newer than this table, or no phone) as it is. Any thread.
QString ModelName(const QString &productType);
