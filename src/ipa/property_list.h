// Property lists, as far as an app's description needs them.
#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QStringList>

#include <optional>

/// Texts by their keys.
using PropertyTexts = QHash<QString, QString>;

/// The texts that the top dictionary of an XML or a binary property list from an untrusted source has under
/// `keys` (ASCII); what is no text there, or missing, is left out. Nothing when the top is no dictionary or
/// when the list is damaged: XML that is not well-formed to its end, declares entities or attributes, or has
/// more than 64 levels or 20,000 attributes; a binary list whose trailer, table of offsets, top dictionary,
/// keys or wanted texts are not sound. Below the top no more is looked at than that takes. Time and memory
/// grow with the bytes. Any thread.
std::optional<PropertyTexts> ReadPropertyTexts(const QByteArray &bytes, const QStringList &keys);
