#include "command_line.h"

#include <array>

using namespace Qt::StringLiterals;

namespace {

struct CommandForm
{
    QStringView word;
    Request::Command command = Request::Command::Help;
    qsizetype parameters = 0; // after the word: the phone, then the file
};

constexpr std::array<CommandForm, 7> kForms{{
    {u"devices", Request::Command::Devices, 0},
    {u"apps", Request::Command::Apps, 1},
    {u"info", Request::Command::Info, 1},
    {u"battery", Request::Command::Battery, 1},
    {u"install", Request::Command::Install, 2},
    {u"--help", Request::Command::Help, 0},
    {u"--version", Request::Command::Version, 0},
}};

} // namespace

std::optional<Request> ParseCommandLine(const QStringList &words)
{
    QStringList rest = words;
    Request request;
    // Only in front: behind the command it could be the name of a file.
    while (!rest.isEmpty() && rest.first() == "--verbose"_L1) {
        request.verbose = true;
        rest.removeFirst();
    }
    for (const CommandForm &form : kForms) {
        if (rest.isEmpty() || rest.first() != form.word)
            continue;
        if (rest.size() != form.parameters + 1 || rest.contains(QString()))
            return std::nullopt;
        request.command = form.command;
        request.phone = rest.value(1);
        request.file = rest.value(2);
        return request;
    }
    return std::nullopt;
}

QString HelpText()
{
    return uR"(devicezarvo: приложения и сведения подключённого iPhone

  devicezarvo [--verbose] devices              подключённые телефоны
  devicezarvo [--verbose] apps ID              приложения телефона
  devicezarvo [--verbose] info ID              сведения о телефоне
  devicezarvo [--verbose] battery ID           состояние аккумулятора
  devicezarvo [--verbose] install ID ФАЙЛ.ipa  установить приложение
  devicezarvo --help | --version

Ответ — один объект JSON на стандартном выводе; код завершения 0 или 1.
--verbose выводит ход работы на стандартный вывод ошибок.
)"_s;
}

QString VersionText()
{
    return u"devicezarvo %1\n"_s.arg(QLatin1StringView(ZARVO_VERSION));
}
