#include "device/device_information.h"

#include "core/shown_text.h"
#include "device/device_tool_client.h"

using namespace Qt::StringLiterals;

QString DetailsText(const QList<DetailLine> &details)
{
    QString text;
    for (const DetailLine &line : details)
        text += OneLine(line.label) + u'\n' + OneLine(line.value) + u"\n\n"_s;
    return text;
}

std::optional<QString> informationWorker(Job &job, const QString &phone, Error *error)
{
    const auto info = device(job, {u"info"_s, phone}, error);
    if (!info)
        return std::nullopt;
    const auto battery = device(job, {u"battery"_s, phone});
    return DetailsText(info->details + (battery ? battery->details : QList<DetailLine>()));
}
