#include "commands.h"
#include "steps.h"

#include "console.h"
#include "session.h"

#include <QBuffer>
#include <QFile>
#include <QFileInfo>

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

void openForReading(QFile &file)
{
    if (QFileInfo(file).isDir())
        throw Failure(Exit::LocalFile, u"%1 is a directory."_s.arg(file.fileName()));
    if (!file.open(QIODevice::ReadOnly)) {
        throw Failure(Exit::LocalFile,
                      u"%1 cannot be read: %2."_s.arg(file.fileName(), file.errorString()));
    }
}

Exit run(Session &session, const QStringList &arguments)
{
    const std::optional<quint32> type = fileTypeFromName(arguments.first());
    if (!type) {
        throw Failure(Exit::Usage, u"\"%1\" is not a file type."_s.arg(arguments.first()),
                      u"The types are configuration, menu, generic and package."_s);
    }
    checkFile(arguments.last());
    sendFile(session, *type, arguments.last());
    return Exit::Success;
}

} // namespace

void checkFile(const QString &path)
{
    QFile file(path);
    openForReading(file);
}

void sendFile(Session &session, quint32 fileType, const QString &path)
{
    QFile file(path);
    openForReading(file);
    // A pipe does not tell its size, which the receiver wants to know first.
    QBuffer whole;
    if (file.isSequential()) {
        whole.setData(file.readAll());
        whole.open(QIODevice::ReadOnly);
    }
    QIODevice &content = file.isSequential() ? static_cast<QIODevice &>(whole) : file;

    Peer &peer = session.peer();
    Console &console = session.console();
    console.startTransfer(path, fileType, session.options().bitRate);
    console.finishTransfer(peer.sendFile(
        fileType, content, [&console](const TransferProgress &p) { console.progress(p); }));
}

const Command sendCommand{.name = "send",
                          .arguments = "configuration|menu|generic|package FILE",
                          .summary = "Send a file.",
                          .leastArguments = 2,
                          .mostArguments = 2,
                          .run = run};

} // namespace Shipwright
