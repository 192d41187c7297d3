// The command line of the device tool.
#pragma once

#include <QString>
#include <QStringList>

#include <optional>

/// What the tool is asked for.
struct Request
{
    enum class Command { Devices, Apps, Info, Battery, Install, Help, Version };

    Command command = Command::Help;
    QString phone;        ///< identifier of the phone, for all that is about one
    QString file;         ///< path of the IPA, for Install
    bool verbose = false; ///< diagnostics on standard error
};

/// Reads the words after the program's name. Nothing when they are no command: an unknown word or option, too
/// few or too many words, an empty one. Any thread.
std::optional<Request> ParseCommandLine(const QStringList &words);

/// The text of --help, with the newline at its end.
QString HelpText();

/// The text of --version, with the newline at its end.
QString VersionText();
