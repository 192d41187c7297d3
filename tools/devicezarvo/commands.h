// What the tool can be asked. Each answers once. The answer is given before the connections to the phone are
// closed, because closing says goodbye and waits for the phone's own.
#pragma once

#include "answer.h"
#include "watch.h"

#include <QString>

/// {"devices": [{"id", "name", "ios"}, …]}. Never pairs. A phone that does not answer is there under the name
/// "iPhone". Ends the program itself when such a phone keeps a thread.
void AnswerDevices(Watch &watch, Answer &answer);

/// {"apps": [{"id", "name", "version", …}, …]}: the user's apps, in the phone's order.
void AnswerApps(const QString &phone, Watch &watch, Answer &answer);

/// {"details": [{"label", "value"}, …]} about the phone.
void AnswerInfo(const QString &phone, Watch &watch, Answer &answer);

/// {"details": [{"label", "value"}, …]} about its battery.
void AnswerBattery(const QString &phone, Watch &watch, Answer &answer);

/// {"success": true} when the phone has called the installation of the IPA complete.
void AnswerInstall(const QString &phone, const QString &file, Watch &watch, Answer &answer);
