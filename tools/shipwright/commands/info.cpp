#include "commands.h"

#include "console.h"
#include "session.h"

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

Exit runInfo(Session &session, const CommandLine &line)
{
    const ReceiverParameters p = session.connect(SendSettings(line)).receiverParameters();
    QString frames = QString::number(p.recordFrames());
    if (p.frameLimit + 1 > p.recordFrames())
        frames += u" (the receiver allows %1, the protocol does not)"_s.arg(p.frameLimit + 1);
    session.console().report(u"info"_s,
                             u"Protocol version:             %1\n"
                             "Data frames in a record:      %2\n"
                             "Flag:                         %3\n"
                             "Limit for a negotiation:      %4 ms\n"
                             "Limit for a record:           %5 ms\n"
                             "Limit for the whole file:     %6 ms"_s.arg(p.version)
                                 .arg(frames)
                                 .arg(p.flag ? 1 : 0)
                                 .arg(p.negotiationTimeout)
                                 .arg(p.recordTimeout)
                                 .arg(p.completeTimeout),
                             {{u"version"_s, qint64(p.version)},
                              {u"frameLimit"_s, qint64(p.frameLimit)},
                              {u"flag"_s, p.flag},
                              {u"parameter1"_s, qint64(p.negotiationTimeout)},
                              {u"parameter2"_s, qint64(p.recordTimeout)},
                              {u"parameter3"_s, qint64(p.completeTimeout)}});
    return Exit::Success;
}

} // namespace

const Command infoCommand{.name = "info",
                          .arguments = "",
                          .summary = "Ask for the receiver's parameters and print them.",
                          .options = {busOptions, sendOptions, receiverOptions},
                          .run = runInfo};

} // namespace Shipwright
