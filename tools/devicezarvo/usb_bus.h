// What is plugged in, as the system lists it.
#pragma once

#include <QString>

/// True when a phone is plugged in, by the list of devices in `folder` (a folder each, with files `idVendor`
/// and `idProduct`): the maker's number, and one of the products for which the rules of usbmuxd start it. Any
/// thread.
bool IsPhoneOnBus(const QString &folder);
