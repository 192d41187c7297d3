// Which phones are there, and which of them is the current one. Plain functions, any thread.
#pragma once

#include "device/device_records.h"

/// True when one of `phones` has this identifier.
bool HasPhone(const QList<PhoneEntry> &phones, const QString &id);

/// The first phone with this identifier; an empty one when there is none.
PhoneEntry FindPhone(const QList<PhoneEntry> &phones, const QString &id);

/// The phone's line in the list of phones.
QString PhoneTitle(const PhoneEntry &phone);

/// What to tell a user who has chosen no phone.
QString PhonePrompt(const QList<PhoneEntry> &phones);
