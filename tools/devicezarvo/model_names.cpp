#include "model_names.h"

#include <array>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr std::array<std::pair<QStringView, QStringView>, 60> kModels{{
    {u"iPhone1,1", u"iPhone"},
    {u"iPhone1,2", u"iPhone 3G"},
    {u"iPhone2,1", u"iPhone 3GS"},
    {u"iPhone3,1", u"iPhone 4"},
    {u"iPhone3,2", u"iPhone 4"},
    {u"iPhone3,3", u"iPhone 4"},
    {u"iPhone4,1", u"iPhone 4s"},
    {u"iPhone5,1", u"iPhone 5"},
    {u"iPhone5,2", u"iPhone 5"},
    {u"iPhone5,3", u"iPhone 5c"},
    {u"iPhone5,4", u"iPhone 5c"},
    {u"iPhone6,1", u"iPhone 5s"},
    {u"iPhone6,2", u"iPhone 5s"},
    {u"iPhone7,1", u"iPhone 6 Plus"},
    {u"iPhone7,2", u"iPhone 6"},
    {u"iPhone8,1", u"iPhone 6s"},
    {u"iPhone8,2", u"iPhone 6s Plus"},
    {u"iPhone8,4", u"iPhone SE (1-го поколения)"},
    {u"iPhone9,1", u"iPhone 7"},
    {u"iPhone9,2", u"iPhone 7 Plus"},
    {u"iPhone9,3", u"iPhone 7"},
    {u"iPhone9,4", u"iPhone 7 Plus"},
    {u"iPhone10,1", u"iPhone 8"},
    {u"iPhone10,2", u"iPhone 8 Plus"},
    {u"iPhone10,3", u"iPhone X"},
    {u"iPhone10,4", u"iPhone 8"},
    {u"iPhone10,5", u"iPhone 8 Plus"},
    {u"iPhone10,6", u"iPhone X"},
    {u"iPhone11,2", u"iPhone XS"},
    {u"iPhone11,4", u"iPhone XS Max"},
    {u"iPhone11,6", u"iPhone XS Max"},
    {u"iPhone11,8", u"iPhone XR"},
    {u"iPhone12,1", u"iPhone 11"},
    {u"iPhone12,3", u"iPhone 11 Pro"},
    {u"iPhone12,5", u"iPhone 11 Pro Max"},
    {u"iPhone12,8", u"iPhone SE (2-го поколения)"},
    {u"iPhone13,1", u"iPhone 12 mini"},
    {u"iPhone13,2", u"iPhone 12"},
    {u"iPhone13,3", u"iPhone 12 Pro"},
    {u"iPhone13,4", u"iPhone 12 Pro Max"},
    {u"iPhone14,2", u"iPhone 13 Pro"},
    {u"iPhone14,3", u"iPhone 13 Pro Max"},
    {u"iPhone14,4", u"iPhone 13 mini"},
    {u"iPhone14,5", u"iPhone 13"},
    {u"iPhone14,6", u"iPhone SE (3-го поколения)"},
    {u"iPhone14,7", u"iPhone 14"},
    {u"iPhone14,8", u"iPhone 14 Plus"},
    {u"iPhone15,2", u"iPhone 14 Pro"},
    {u"iPhone15,3", u"iPhone 14 Pro Max"},
    {u"iPhone15,4", u"iPhone 15"},
    {u"iPhone15,5", u"iPhone 15 Plus"},
    {u"iPhone16,1", u"iPhone 15 Pro"},
    {u"iPhone16,2", u"iPhone 15 Pro Max"},
    {u"iPhone17,1", u"iPhone 16 Pro"},
    {u"iPhone17,2", u"iPhone 16 Pro Max"},
    {u"iPhone17,3", u"iPhone 16"},
    {u"iPhone17,4", u"iPhone 16 Plus"},
    {u"iPhone17,5", u"iPhone 16e"},
    {u"iPod7,1", u"iPod touch (6-го поколения)"},
    {u"iPod9,1", u"iPod touch (7-го поколения)"},
}};

} // namespace

QString ModelName(const QString &productType)
{
    for (const auto &[type, name] : kModels) {
        if (type == productType)
            return u"%1 (%2)"_s.arg(name, type);
    }
    return productType;
}
