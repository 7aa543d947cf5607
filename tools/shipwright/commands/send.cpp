#include "commands.h"
#include "steps.h"

#include "console.h"
#include "session.h"

#include "filetypes.h"
#include "text.h"

#include "wire.h"

#include <QJsonDocument>

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

/// The receiver installs a configuration at once, so a bad one does damage.
void checkConfiguration(Session &session, const FileToSend &file, bool force)
{
    const QString name = printable(file.name);
    if (file.content.isEmpty()) {
        if (force)
            return;
        throw Failure(
            Exit::LocalFile,
            u"The configuration %1 is empty; it would replace the receiver's configuration."_s.arg(
                name),
            u"--force sends it anyway."_s);
    }
    QJsonParseError error;
    QJsonDocument::fromJson(file.content, &error);
    if (error.error != QJsonParseError::NoError) {
        session.console().warn(
            u"The configuration %1 is not JSON (%2 at byte %3); it is sent as it "
            "is."_s.arg(name, error.errorString())
                .arg(error.offset));
    }
}

Exit runSend(Session &session, const CommandLine &line)
{
    const SendSettings settings(line);
    const QString typeName = line.arguments.first();
    const std::optional<quint32> type = fileTypeFromName(typeName);
    if (!type) {
        throw Failure(Exit::Usage, u"\"%1\" is not a file type."_s.arg(typeName),
                      u"The types are configuration, menu, generic and package."_s);
    }
    FileToSend file = readFile(session, *type, line.arguments.last(), line.isSet(forceOption));
    session.connect(settings);
    sendFile(session, file, settings.bus.bitRate);
    return Exit::Success;
}

} // namespace

FileToSend readFile(Session &session, quint32 type, const QString &path, bool force)
{
    FileToSend file{type, path, session.contentOf(path)};
    if (type == Wire::FileType::configuration)
        checkConfiguration(session, file, force);
    return file;
}

void sendFile(Session &session, FileToSend &file, std::optional<quint32> bitRate)
{
    Console &console = session.console();
    console.startTransfer(file.name, file.type, bitRate);
    console.finishTransfer(
        session.peer().sendFile(file.type, file.content, [&](const TransferProgress &progress) {
            file.progress = progress;
            console.progress(progress);
        }));
}

const Command sendCommand{.name = "send",
                          .arguments = "configuration|menu|generic|package FILE",
                          .summary = "Send a file.",
                          .leastArguments = 2,
                          .mostArguments = 2,
                          .options = {busOptions, sendOptions, receiverOptions, transferOptions},
                          .run = runSend};

} // namespace Shipwright
