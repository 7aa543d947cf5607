#include "commands.h"
#include "steps.h"

#include "console.h"
#include "session.h"

namespace Shipwright {

using namespace Qt::StringLiterals;

void setSerial(Session &session, const QString &text)
{
    session.peer().setSerialNumber(text);
    session.console().report(u"serial"_s, u"Serial number set to %1."_s.arg(text),
                             {{u"serial"_s, text}});
}

namespace {

Exit runSetSerial(Session &session, const CommandLine &line)
{
    const SendSettings settings(line);
    const QString text = line.arguments.first();
    Peer::checkSerialNumber(text);
    session.connect(settings);
    setSerial(session, text);
    return Exit::Success;
}

} // namespace

const Command setSerialCommand{
    .name = "set-serial",
    .arguments = "TEXT",
    .summary = "Set the receiver's serial number, up to 15 bytes of UTF-8.",
    .leastArguments = 1,
    .mostArguments = 1,
    .options = {busOptions, sendOptions, receiverOptions, slotOptions},
    .run = runSetSerial};

} // namespace Shipwright
