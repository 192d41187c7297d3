// A phone's details as text. Any thread.
#pragma once

#include "core/job.h"
#include "device/device_records.h"

#include <QList>
#include <QString>

#include <optional>

/// Each label on a line, its value on the next, and an empty line after the pair.
QString DetailsText(const QList<DetailLine> &details);

/// Reads the details of `phone` and of its battery as one text; a battery that tells nothing is no failure.
/// Blocks.
std::optional<QString> informationWorker(Job &job, const QString &phone, Error *error = nullptr);
