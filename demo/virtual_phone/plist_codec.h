// Property lists as Qt values: dictionaries are QVariantMap, arrays QVariantList, texts QString, data
// QByteArray.
#pragma once

#include <QByteArray>
#include <QVariant>

#include <optional>

enum class PlistFormat { Xml, Binary };

/// Writes `value`; whole numbers, fractions, truth values, texts, data, arrays and dictionaries are known,
/// anything else becomes an empty text.
QByteArray encodePlist(const QVariant &value, PlistFormat format = PlistFormat::Xml);

/// Reads a property list of either format; nothing when it is damaged or no dictionary. Numbers come as
/// qint64: a phone's negative numbers are meant as such.
std::optional<QVariantMap> decodePlist(QByteArrayView bytes);
