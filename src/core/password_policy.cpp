#include "core/password_policy.h"

#include <algorithm>

bool ZarvoLatin(QStringView text)
{
    return std::all_of(text.begin(), text.end(), [](QChar c) { return c >= u' ' && c <= u'~'; });
}
