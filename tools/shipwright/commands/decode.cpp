#include "commands.h"

#include "console.h"
#include "session.h"

#include "candump.h"
#include "decoder.h"

#include <QFile>

#include <cstdio>

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

Exit run(Session &session, const QStringList &arguments)
{
    const QString path = arguments.value(0, u"-"_s);
    QFile input(path);
    const bool isOpen = path == u"-" ? input.open(stdin, QIODevice::ReadOnly)
                                     : input.open(QIODevice::ReadOnly);
    if (!isOpen)
        throw Failure(Exit::LocalFile, u"%1 cannot be read: %2."_s.arg(path, input.errorString()));

    std::optional<qint64> start;
    QStringList undecoded;
    for (int number = 1; !input.atEnd() || input.isSequential(); ++number) {
        const QByteArray line = input.readLine();
        if (line.isEmpty())
            break;
        const auto entry = Candump::parse(line);
        if (!entry) {
            if (!line.trimmed().isEmpty())
                undecoded += QString::number(number);
            continue;
        }
        if (!start)
            start = microSeconds(entry->frame.timeStamp());
        session.console().report(u"frame"_s, decodedLine(entry->frame, *start),
                                 decodedObject(entry->frame));
    }
    if (!undecoded.isEmpty()) {
        const qsizetype shown = 10;
        const QString more = undecoded.size() > shown ? u", ..."_s : QString();
        throw Failure(Exit::LocalFile,
                      u"%1 of the lines hold no classic CAN frame in candump's log format: %2%3."_s
                          .arg(undecoded.size())
                          .arg(undecoded.mid(0, shown).join(u", "_s), more),
                      u"Record with candump -L or with shipwright --log."_s);
    }
    return Exit::Success;
}

} // namespace

const Command decodeCommand{
    .name = "decode",
    .arguments = "[FILE]",
    .summary = "Print a candump log, or standard input, one readable line a frame.",
    .mostArguments = 1,
    .run = run};

} // namespace Shipwright
