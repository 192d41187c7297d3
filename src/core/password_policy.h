// Which passwords survive being typed into a terminal.
#pragma once

#include <QStringView>

/// True when every UTF-16 unit of `text` is printable ASCII (space to tilde); true for the empty text. Any
/// thread.
bool ZarvoLatin(QStringView text);
