// Which phones are there. Any thread.
#pragma once

#include "core/job.h"
#include "device/device_records.h"

#include <optional>

/// True when one of `phones` has this identifier.
bool HasPhone(const QList<PhoneEntry> &phones, const QString &id);

/// The first phone with this identifier; an empty one when there is none.
PhoneEntry FindPhone(const QList<PhoneEntry> &phones, const QString &id);

/// The phone's line in the list of phones.
QString PhoneTitle(const PhoneEntry &phone);

/// What to tell a user who has chosen no phone.
QString PhonePrompt(const QList<PhoneEntry> &phones);

/// The phones that a poll found: none whenever the run failed in any way (`result` absent: it did not end).
/// Says in `error` why there is no answer, unless the run has said so itself by being absent.
QList<PhoneEntry> DiscoveredPhones(const std::optional<ToolResult> &result, Error *error = nullptr);

/// Asks the device tool which phones are connected; why there are none stands in `error`. Blocks.
QList<PhoneEntry> discoverPhones(Job &job, Error *error = nullptr);
