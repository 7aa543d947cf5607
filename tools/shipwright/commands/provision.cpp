#include "commands.h"
#include "steps.h"

#include "console.h"
#include "session.h"

#include "filetypes.h"
#include "wire.h"

#include <utility>
#include <vector>

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

constexpr Option timeOption{"time", "TIME",
                            "Set the clock to \"now\" or to an ISO 8601 date and time."};
constexpr Option serialOption{"serial", "TEXT", "Set the serial number."};
constexpr Option stepOptions[] = {timeOption, serialOption};

/// In the order in which the files are sent.
constexpr Option fileOptions[] = {
    {"configuration", "FILE", "Send a configuration file."},
    {"menu", "FILE", "Send a menu file."},
    {"generic", "FILE", "Send a generic file."},
    {"package", "FILE", "Send a package file."},
};

/// A whole session.
struct Provisioning
{
    Provisioning(Session &session, const CommandLine &line);

    SendSettings settings;
    std::optional<TimeSetting> time;
    std::optional<QString> serial;
    std::vector<FileToSend> files;
};

Provisioning::Provisioning(Session &session, const CommandLine &line)
    : settings(line)
{
    if (line.isSet(timeOption))
        time = readTime(line.text(timeOption));
    if (line.isSet(serialOption)) {
        serial = line.text(serialOption);
        Peer::checkSerialNumber(*serial);
    }
    for (const Option &option : fileOptions) {
        if (!line.isSet(option))
            continue;
        const quint32 type = *fileTypeFromName(QString::fromLatin1(option.name));
        files.push_back(readFile(session, type, line.text(option), line.isSet(forceOption)));
    }
    if (!time && !serial && files.empty()) {
        throw Failure(Exit::Usage, u"There is nothing to do."_s,
                      u"Give at least one of --time, --serial and the file options."_s);
    }
}

Exit run(Session &session, const CommandLine &line)
{
    // Check everything before the receiver sees the first frame.
    const Provisioning provisioning(session, line);
    session.connect(provisioning.settings);
    startConfiguration(session);
    if (provisioning.time)
        setTime(session, *provisioning.time);
    if (provisioning.serial)
        setSerial(session, *provisioning.serial);
    for (const FileToSend &file : provisioning.files)
        sendFile(session, file, provisioning.settings.bus.bitRate);
    endConfiguration(session);
    return Exit::Success;
}

} // namespace

const Command provisionCommand{
    .name = "provision",
    .arguments = "[--time TIME] [--serial TEXT] [--configuration FILE] ...",
    .summary = "Run a whole session: connect, clock, serial number, files, end.",
    .options = {stepOptions, fileOptions, transferOptions, busOptions, sendOptions, receiverOptions,
                slotOptions},
    .run = run};

} // namespace Shipwright
