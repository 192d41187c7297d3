// The phones that the user has chosen before. Plain functions, any thread.
#pragma once

#include "device/device_records.h"

#include <QList>
#include <QString>
#include <QVariant>

/// The phones to remember after `phone` was chosen: it replaces its former entry; a phone without a name is
/// an "iPhone". Sorted by name as the user's language does, without regard to case.
QList<PhoneEntry> Remembered(const QList<PhoneEntry> &history, const PhoneEntry &phone);

/// The history without the phone `id`.
QList<PhoneEntry> Forgotten(QList<PhoneEntry> history, const QString &id);

/// The history as the settings hold it: a list with a map of three texts for each phone.
QVariantList StoredHistory(const QList<PhoneEntry> &history);
/// What of a stored value is usable, in its order. Anything may be stored: what is no map with a non-empty
/// text `id` and a text `name` is left out.
QList<PhoneEntry> LoadedHistory(const QVariant &stored);

/// How an entry is shown.
QString HistoryLine(const PhoneEntry &entry, bool connected);
