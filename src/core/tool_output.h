// Reading what a command-line tool printed. Plain functions, callable on any thread.
#pragma once

#include <QByteArrayView>
#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QString>

#include <functional>

/// Decodes UTF-8. Bytes that are not valid UTF-8 as a whole give the empty text; a byte order mark is kept.
QString ZarvoText(QByteArrayView bytes);

/// The JSON objects in a tool's output, in their order. Every line is tried from its first "{" on (so a log
/// prefix does no harm); arrays, scalars and broken lines are passed over. Only when no line gave an object
/// is the whole text tried as one document. Lines end at U+000A to U+000D, U+0085, U+2028 and U+2029. Three
/// bytes of output can become an object of a hundred: for output of a size that a tool chooses take
/// VisitJSON.
QList<QJsonObject> ZarvoJSON(const QString &text);

/// Shows `take` the same objects one by one, of which one is in memory at a time, until it returns false.
void VisitJSON(const QString &text, const std::function<bool(const QJsonObject &)> &take);

/// The text of a record's member: a string as it is, a number as its decimal text (whole numbers exactly, up
/// to 64 bits), anything else or a missing member as the empty text. At most 4096 UTF-16 units: what a tool
/// calls a name, a version or an error is a line, and a longer one would stop the window that has to lay it
/// out.
QString JSONText(const QJsonValue &value);

/// The truth of a record's member: JSON true, or a number other than 0.
bool JSONTruth(const QJsonValue &value);

/// The whole number at the start of a text, after blanks and an optional sign: 0 when there is none, clamped
/// to the range of 64 bits.
qint64 IntegerValue(QStringView text);
