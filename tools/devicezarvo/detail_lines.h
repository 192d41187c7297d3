// What a phone says of itself and of its battery, as lines to be read. Plain functions, any thread.
#pragma once

#include <QJsonArray>

#include <plist/plist.h>

/// The lines about the phone, each an object with `label` and `value`, some with a `key`. `values`: all that
/// the phone tells about itself at once; `disk`: its disk usage. Either may be null; what is not given, or
/// makes no sense, is marked "недоступно".
QJsonArray InfoLines(plist_t values, plist_t disk);

/// The lines about the battery. `state`: charge and charging; `gauge`: the battery's own registry entry (in
/// mAh, cycles and hundredths of °C). Either may be null. The health is the nominal capacity by that of the
/// design and can differ from what the phone's own settings show.
QJsonArray BatteryLines(plist_t state, plist_t gauge);
