// Reading property lists that a phone sent. Nothing about their shape is taken for granted: every function
// takes a null node and a node of any type.
#pragma once

#include <QByteArray>
#include <QString>

#include <plist/plist.h>

#include <memory>
#include <optional>

struct PlistDeleter
{
    void operator()(void *node) const { plist_free(node); }
};
/// Owns a whole property list.
using Plist = std::unique_ptr<void, PlistDeleter>;

/// The member `key` of a dictionary, still owned by it; null when there is none.
plist_t PlistMember(plist_t dictionary, const char *key);

/// A string as it is (what is not UTF-8 in it replaced), a whole number as its decimal text, anything else as
/// the empty text. At most 4096 UTF-16 units: a name is a line, not a book.
QString PlistText(plist_t node);

/// A whole number, negative ones in two's complement as the library keeps them; also one that is written as
/// text.
std::optional<quint64> PlistWhole(plist_t node);

/// A boolean, or a whole number other than 0.
std::optional<bool> PlistTruth(plist_t node);

/// The bytes of a data node; empty for anything else.
QByteArray PlistBytes(plist_t node);

/// Parses an XML or a binary property list; null when it is damaged.
Plist ParsePlist(const QByteArray &bytes);
