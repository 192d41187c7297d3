// The redaction as it is meant: eight regular expressions, run by ICU. Slow on long texts, and out of memory
// on hostile ones; for tests of the rules that are written by hand.
#pragma once

#include "store/redaction_rules.h"

#include <QString>

#include <unicode/regex.h>

#include <array>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

/// One rule as an expression, and by hand.
struct RedactionExpression
{
    const char *name;
    Redaction::Found (*find)(QStringView text, qsizetype from);
    QString pattern;
    QString replacement;
};

/// In the order in which they are applied.
extern const std::array<RedactionExpression, 8> redactionExpressions;

/// Where matches begin and end, in UTF-16 units.
using Spans = std::vector<std::pair<qsizetype, qsizetype>>;

/// What the rule that is written by hand finds.
Spans spansByHand(const RedactionExpression &expression, const QString &text);

/// The expressions, run by ICU. One thread. An error of the engine ends the program.
class RedactionEngine
{
public:
    RedactionEngine();

    /// What the expression number `rule` finds.
    Spans spans(std::size_t rule, const QString &text);
    /// The text with what it finds replaced.
    QString replaced(std::size_t rule, const QString &text);

private:
    std::vector<std::unique_ptr<icu::RegexMatcher>> m_matchers;
};
