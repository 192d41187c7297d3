#include "store/known_secrets.h"

#include "store/unescaped_text.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype kShortest = 4;         // units
constexpr qsizetype kShortestAnywhere = 8; // what is shorter may be a part of an innocent word
constexpr qsizetype kFewestDigits = 7;     // of a telephone number
constexpr qsizetype kNationalDigits = 10;  // of a telephone number without its country code

constexpr bool isDigit(QChar c)
{
    return c >= u'0' && c <= u'9';
}

/// What may stand between the digits of a telephone number.
bool isGrouping(QChar c)
{
    return c == u' ' || c == QChar::Nbsp || c == u'-' || c == u'(' || c == u')' || c == u'.';
}

QString digitsOf(QStringView text)
{
    QString digits;
    std::copy_if(text.begin(), text.end(), std::back_inserter(digits), isDigit);
    return digits;
}

bool isPartOfWord(QChar c)
{
    return c.isLetter() || c.isMark() || c.isSurrogate();
}

/// Whether a word or a number ends at the position.
bool isEdge(QStringView text, qsizetype position)
{
    if (position == 0 || position == text.size())
        return true;
    const QChar before = text[position - 1];
    const QChar after = text[position];
    return !(isPartOfWord(before) && isPartOfWord(after)) && !(isDigit(before) && isDigit(after));
}

template <typename Take>
void forEachOccurrence(QStringView text, QStringView value, Take take)
{
    for (qsizetype at = text.indexOf(value); at >= 0; at = text.indexOf(value, at + 1)) {
        const qsizetype end = at + value.size();
        if (value.size() >= kShortestAnywhere || (isEdge(text, at) && isEdge(text, end)))
            take(at, end);
    }
}

/// Digits that are grouped in no way and in any way are the same number.
struct Digits
{
    explicit Digits(QStringView text)
    {
        qsizetype last = 0;
        for (qsizetype i = 0; i < text.size(); ++i) {
            if (!isDigit(text[i]))
                continue;
            const QStringView between = text.sliced(last, i - last);
            if (!std::all_of(between.begin(), between.end(), isGrouping)) {
                digits += u' ';
                positions.push_back(i);
            }
            digits += text[i];
            positions.push_back(i);
            last = i + 1;
        }
    }

    QString digits; // a blank between those that are no number together
    std::vector<qsizetype> positions;
};

} // namespace

void KnownSecrets::addAccount(const QString &account)
{
    add(account, Kind::Account);
    addNumber(account);
}

void KnownSecrets::addHomeFolder(const QString &path)
{
    const qsizetype last = path.lastIndexOf(u'/');
    if (path.endsWith(u'/'))
        return addHomeFolder(path.chopped(1));
    add(path, Kind::HomeFolder);
    if (last >= 0)
        add(path.sliced(last), Kind::UserName);
}

void KnownSecrets::addPhoneIdentifier(const QString &identifier)
{
    if (std::any_of(identifier.begin(), identifier.end(), isDigit))
        add(identifier, Kind::Phone);
}

void KnownSecrets::addPhoneName(const QString &name)
{
    QString telling = name.toCaseFolded();
    for (const auto product : {"iphone"_L1, "ipad"_L1, "ipod"_L1})
        telling.remove(product);
    if (std::any_of(telling.begin(), telling.end(), isPartOfWord))
        add(name, Kind::Phone);
}

void KnownSecrets::addDetails(const QList<DetailLine> &details)
{
    for (const DetailLine &line : details) {
        if (line.key == kSerialNumberKey)
            addPhoneIdentifier(line.value);
        else if (line.key == kPhoneNumberKey)
            addNumber(line.value);
    }
}

void KnownSecrets::add(const QString &text, Kind kind)
{
    const qsizetype known = m_added.size();
    if (m_added.insert(text); m_added.size() == known)
        return;
    const QString value = UnescapedText(text.trimmed()).view().toString();
    const auto isShorter = [](const QString &one, const Value &other) {
        return one.size() < other.text.size();
    };
    if (value.size() >= kShortest)
        m_values.insert(std::upper_bound(m_values.begin(), m_values.end(), value, isShorter), {value, kind});
}

void KnownSecrets::addNumber(const QString &number)
{
    const auto isPlausible = [](QChar c) { return isDigit(c) || isGrouping(c) || c == u'+'; };
    const QString digits = digitsOf(number);
    if (digits.size() < kFewestDigits || !std::all_of(number.begin(), number.end(), isPlausible))
        return;
    for (const QString &form : {digits.last(std::min(digits.size(), kNationalDigits)), digits}) {
        if (std::find(m_numbers.begin(), m_numbers.end(), form) == m_numbers.end())
            m_numbers.push_back(form);
    }
}

std::vector<KnownSecrets::Occurrence> KnownSecrets::findIn(QStringView text) const
{
    std::vector<Occurrence> found;
    if (m_values.empty() && m_numbers.empty())
        return found;
    const UnescapedText plain(text);
    const auto note = [&](qsizetype start, qsizetype end, Kind kind) {
        found.push_back({plain.origin(start), plain.origin(end), kind});
    };
    for (const Value &value : m_values)
        forEachOccurrence(plain.view(), value.text,
                          [&](qsizetype start, qsizetype end) { note(start, end, value.kind); });
    if (m_numbers.empty())
        return found;
    const Digits numbers(plain.view());
    for (const QString &number : m_numbers) {
        forEachOccurrence(numbers.digits, number, [&](qsizetype start, qsizetype end) {
            qsizetype first = numbers.positions[size_t(start)];
            while (first > 0 && (plain.view()[first - 1] == u'+' || plain.view()[first - 1] == u'('))
                --first;
            note(first, numbers.positions[size_t(end - 1)] + 1, Kind::Account);
        });
    }
    return found;
}

QStringView PlaceholderFor(KnownSecrets::Kind kind)
{
    switch (kind) {
    case KnownSecrets::Kind::Account:
        return u"[аккаунт скрыт]";
    case KnownSecrets::Kind::HomeFolder:
        return u"/Users/[пользователь]";
    case KnownSecrets::Kind::UserName:
        return u"/[пользователь]";
    case KnownSecrets::Kind::Phone:
        return u"[устройство скрыто]";
    }
    return {};
}
