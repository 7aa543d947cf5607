#include "commands.h"
#include "steps.h"

#include "console.h"
#include "session.h"

#include "wire.h"

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

constexpr quint32 fileOrder[] = {Wire::FileType::configuration, Wire::FileType::menu,
                                 Wire::FileType::generic, Wire::FileType::package};

void addOptions(QCommandLineParser &parser)
{
    parser.addOption(
        {u"time"_s, u"Set the clock to \"now\" or to an ISO 8601 date and time."_s, u"TIME"_s});
    parser.addOption({u"serial"_s, u"Set the serial number."_s, u"TEXT"_s});
    for (const quint32 type : fileOrder) {
        parser.addOption(
            {fileTypeName(type), u"Send a %1 file."_s.arg(fileTypeName(type)), u"FILE"_s});
    }
}

Exit run(Session &session, const QStringList &)
{
    const QCommandLineParser &parser = session.parser();
    const bool setsTime = parser.isSet(u"time"_s);
    const bool setsSerial = parser.isSet(u"serial"_s);
    bool hasWork = setsTime || setsSerial;

    // Everything that can be refused here is, before the receiver sees the first frame.
    if (setsTime)
        dateTimeFromText(parser.value(u"time"_s));
    if (setsSerial)
        Peer::checkSerialNumber(parser.value(u"serial"_s));
    for (const quint32 type : fileOrder) {
        if (parser.isSet(fileTypeName(type))) {
            checkFile(parser.value(fileTypeName(type)));
            hasWork = true;
        }
    }
    if (!hasWork) {
        throw Failure(Exit::Usage, u"There is nothing to do."_s,
                      u"Give at least one of --time, --serial and the files."_s);
    }

    startConfiguration(session);
    if (setsTime)
        setTime(session, parser.value(u"time"_s));
    if (setsSerial)
        setSerial(session, parser.value(u"serial"_s));
    for (const quint32 type : fileOrder) {
        if (parser.isSet(fileTypeName(type)))
            sendFile(session, type, parser.value(fileTypeName(type)));
    }
    endConfiguration(session);
    return Exit::Success;
}

} // namespace

const Command provisionCommand{
    .name = "provision",
    .arguments = "[--time TIME] [--serial TEXT] [--configuration FILE] ...",
    .summary = "Do a whole session: connect, clock, serial number, files, end.",
    .run = run,
    .addOptions = addOptions};

} // namespace Shipwright
