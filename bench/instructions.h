// Counting instructions: a figure that a busy machine does not change.
#pragma once

#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

/// How many instructions this program executes outside the kernel in the counted part of what `arguments` let
/// it do, children not included. Nothing when it failed, or when neither the processor's counters can be used
/// nor valgrind is installed.
std::optional<double> instructionsOf(const QStringList &arguments, const QString &folder);

/// Who counts: the processor, valgrind, or nobody.
QString whoCounts();

/// For such a run: does the work, which is the counted part.
void counted(const std::function<void()> &work);
