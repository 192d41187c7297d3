// The secrets of the user that this program knows itself. What redacts the store tool's output by its shape
// misses an account that is a telephone number, or a user's name with a blank in it; here they are known
// letter by letter.
#pragma once

#include "device/device_records.h"

#include <QSet>
#include <QString>
#include <QStringView>

#include <vector>

/// Grows as the program meets them. One thread at a time.
class KnownSecrets
{
public:
    enum class Kind { Account, HomeFolder, UserName, Phone };

    /// A place in a text, half open, in its UTF-16 units.
    struct Occurrence
    {
        qsizetype start;
        qsizetype end;
        Kind kind;
    };

    // What is too short to tell anything is never taken: it would be found everywhere.

    /// An e-mail address, in any script, or a telephone number.
    void addAccount(const QString &account);
    /// A telephone number in any grouping; nothing else is taken.
    void addNumber(const QString &number);
    /// An absolute path. The name of the user, which is its last part, is looked for in other paths too.
    void addHomeFolder(const QString &path);
    /// A phone's identifier or serial number; must have a digit.
    void addPhoneIdentifier(const QString &identifier);
    /// The name that the phone's owner gave it; taken when it tells more than that it is a phone.
    void addPhoneName(const QString &name);
    /// The serial number and the telephone number among what the device tool tells of a phone.
    void addDetails(const QList<DetailLine> &details);

    /// Everywhere in `text` that one of them stands; where two overlap, the longer one comes later. It is
    /// found in any case, within terminal control sequences, percent-encoded, escaped as in JSON, and a
    /// telephone number in any grouping, with or without its country code. A short one counts only as a whole
    /// word. Time is the length of the text times the number of secrets. Any thread; cannot fail.
    std::vector<Occurrence> findIn(QStringView text) const;

private:
    struct Value
    {
        QString text; // unescaped
        Kind kind;
    };

    void add(const QString &text, Kind kind);

    std::vector<Value> m_values;    // the short ones first
    std::vector<QString> m_numbers; // digits
    QSet<QString> m_added;          // an account may own a thousand apps
};

/// What is shown in place of a secret.
QStringView PlaceholderFor(KnownSecrets::Kind kind);
