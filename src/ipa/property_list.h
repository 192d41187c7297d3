// Property lists, as far as an app's description needs them.
#pragma once

#include <QByteArray>
#include <QString>

#include <memory>
#include <optional>

/// A property list whose top level is a dictionary. Movable; any thread, one at a time.
class PropertyDictionary
{
public:
    /// Parses an XML or a binary property list from an untrusted source. Nothing when it is damaged, when its
    /// top level is not a dictionary, when it declares entities, or when it is beyond the bounds that keep
    /// memory and stack small: 64 levels, 100,000 values, 24 MB after everything shared was written out.
    /// Descriptions of real apps stay far below them.
    static std::optional<PropertyDictionary> read(const QByteArray &bytes);

    /// The member `key` of the top level; nothing when it is missing or not a string.
    std::optional<QString> text(const char *key) const;

private:
    using Node = std::unique_ptr<void, void (*)(void *)>;

    explicit PropertyDictionary(Node node);

    Node m_node;
};
