// The device tool: answers one question about connected phones, or installs one app, and ends.
#include "command_line.h"

#include <QFile>

#include <cstdio>

int main(int argc, char **argv)
{
    QStringList words;
    for (int i = 1; i < argc; ++i)
        words.append(QFile::decodeName(argv[i]));
    const auto request = ParseCommandLine(words);
    if (!request)
        return 1;
    const QString text = request->command == Request::Command::Version ? VersionText() : HelpText();
    std::fputs(qUtf8Printable(text), stdout);
    return 0;
}
