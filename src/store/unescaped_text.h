// A text as it reads once its escapes are undone, for finding in it what may be written in several ways.
#pragma once

#include <QString>
#include <QStringView>

#include <vector>

/// The text without terminal control sequences, with percent-encoded UTF-8 (`%D0%90`) and the escapes of JSON
/// (`\u0410`, `\/`) decoded, accented letters taken apart (so that "й" is equal in both its forms) and case
/// folded; each of its units knows where in the original it stands. Takes any UTF-16. Time and memory are
/// linear in its length, memory being small where there is nothing to undo. Any thread; cannot fail.
class UnescapedText
{
public:
    explicit UnescapedText(QStringView original);

    QStringView view() const { return m_text; }
    /// Where in the original the unit at `position` begins; the end of the original for the end of the text.
    /// What was left out between two units belongs to the left one.
    qsizetype origin(qsizetype position) const;

private:
    struct Shift
    {
        qsizetype position;
        qsizetype origin;
    };

    void append(char32_t character, qsizetype origin);
    void appendUnit(char16_t unit, qsizetype origin);

    QString m_text;
    std::vector<Shift> m_shifts; // where the distance to the original changes
};
