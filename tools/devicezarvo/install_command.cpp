#include "commands.h"
#include "deadlines.h"
#include "diagnostics.h"
#include "install_messages.h"
#include "installation_service.h"
#include "ipa_contents.h"
#include "staged_upload.h"

#include <utility>

using namespace Qt::StringLiterals;

namespace {

plist_t dataNode(const QByteArray &bytes)
{
    return plist_new_data(bytes.constData(), static_cast<std::uint64_t>(bytes.size()));
}

Plist installCommand(const QByteArray &path, const IPAContents &contents)
{
    Plist options(plist_new_dict());
    plist_dict_set_item(options.get(), "CFBundleIdentifier",
                        plist_new_string(contents.bundleID.toUtf8().constData()));
    if (!contents.sinf.isEmpty())
        plist_dict_set_item(options.get(), "ApplicationSINF", dataNode(contents.sinf));
    if (!contents.metadata.isEmpty())
        plist_dict_set_item(options.get(), "iTunesMetadata", dataNode(contents.metadata));
    Plist command(plist_new_dict());
    plist_dict_set_item(command.get(), "Command", plist_new_string("Install"));
    plist_dict_set_item(command.get(), "PackagePath", plist_new_string(path.constData()));
    plist_dict_set_item(command.get(), "ClientOptions", options.release());
    return command;
}

/// True only when the phone has called it complete.
bool installUpload(InstallationService &service, const StagedUpload &upload, const IPAContents &contents,
                   Failure *failure)
{
    if (!service.send(installCommand(upload.path(), contents), failure))
        return false;
    int percent = -1;
    for (;;) {
        const Plist raw = service.receive(CurrentDeadlines().silence, failure);
        if (!raw)
            return false;
        const InstallMessage message = ReadInstallMessage(raw.get());
        if (message.kind == InstallMessage::Kind::Refused)
            return Fail(failure, message.refusal);
        if (message.kind == InstallMessage::Kind::Complete)
            return true;
        if (message.percent >= 0 && message.percent != percent)
            ReportProgress("install"_L1, percent = message.percent);
    }
}

} // namespace

void AnswerInstall(const QString &phone, const QString &file, Watch &watch, Answer &answer)
{
    Failure failure;
    const auto contents = ReadIPAContents(file, &failure);
    auto session = contents ? PhoneSession::open(phone, watch, &failure) : std::nullopt;
    // Both services now: the phone ends a session that rests for ten seconds, and an upload takes longer.
    FileClient files = session ? session->startFileService(&failure) : nullptr;
    auto service = files ? InstallationService::start(*session, &failure) : std::nullopt;
    if (!service) {
        answer.fail(failure);
        watch.step(CurrentDeadlines().goodbye);
        return;
    }
    const Watch::Cleanup cleanup(watch);
    StagedUpload upload(files, watch);
    if (upload.send(file, &failure) && installUpload(*service, upload, *contents, &failure))
        answer.give({{"success"_L1, true}});
    else
        answer.fail(DuringInstallation(failure));
    watch.step(CurrentDeadlines().goodbye);
}
