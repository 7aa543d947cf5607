#include "commands.h"
#include "steps.h"

#include "console.h"
#include "session.h"

#include "crc32.h"
#include "filetypes.h"
#include "text.h"
#include "wire.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>

#include <utility>
#include <vector>

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

constexpr Option timeOption{"time", "TIME",
                            "Set the clock to \"now\" or to an ISO 8601 date and time."};
constexpr Option serialOption{"serial", "TEXT", "Set the serial number."};
/// The files are last, in the order in which they are sent.
constexpr Option steps[] = {
    timeOption,
    serialOption,
    {"configuration", "FILE", "Send a configuration file."},
    {"menu", "FILE", "Send a menu file."},
    {"generic", "FILE", "Send a generic file."},
    {"package", "FILE", "Send a package file."},
};
constexpr Option reportOptions[] = {reportOption};

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
    for (const Option &option : fileOptions()) {
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

void provision(Session &session, Provisioning &provisioning)
{
    session.connect(provisioning.settings);
    startConfiguration(session);
    if (provisioning.time)
        setTime(session, *provisioning.time);
    if (provisioning.serial)
        setSerial(session, *provisioning.serial);
    for (FileToSend &file : provisioning.files)
        sendFile(session, file, provisioning.settings.bus.bitRate);
    endConfiguration(session);
}

/// What is kept of a unit, in the words of the events.
QJsonObject reportOf(const Provisioning &provisioning, const std::optional<Failure> &failure,
                     const QString &receiverState)
{
    QJsonArray files;
    qint64 repeated = 0;
    for (const FileToSend &file : provisioning.files) {
        const auto phase = file.progress.phase;
        files += QJsonObject{
            {u"type"_s, fileTypeName(file.type)},
            {u"file"_s, file.name},
            {u"bytes"_s, file.content.size()},
            {u"crc"_s, hexDigits(crc32Of(file.content))},
            {u"sha256"_s,
             QString::fromLatin1(
                 QCryptographicHash::hash(file.content, QCryptographicHash::Sha256).toHex())},
            {u"sent"_s, phase == TransferProgress::Phase::Confirmed}};
        repeated += file.progress.repeated;
    }
    return {{u"interface"_s, provisioning.settings.bus.interfaceName},
            {u"tool"_s, QCoreApplication::applicationVersion()},
            {u"serial"_s, provisioning.serial ? QJsonValue(*provisioning.serial) : QJsonValue()},
            {u"files"_s, files},
            {u"repeated"_s, repeated},
            {u"result"_s, failure ? u"failed"_s : u"done"_s},
            {u"status"_s, int(failure ? failure->exit : Exit::Success)},
            {u"message"_s, failure ? failure->message : QString()},
            {u"receiver"_s, receiverState}};
}

Exit runProvision(Session &session, const CommandLine &line)
{
    // Check everything before the receiver sees the first frame.
    Provisioning provisioning(session, line);
    if (!line.isSet(reportOption)) {
        provision(session, provisioning);
        return Exit::Success;
    }
    Output &report = session.openOutput(u"The report"_s, line.text(reportOption));
    const QDateTime start = QDateTime::currentDateTimeUtc();
    QElapsedTimer timer;
    timer.start();
    std::optional<Failure> failure;
    try {
        provision(session, provisioning);
    } catch (const Failure &cause) {
        failure = cause;
    }
    QJsonObject unit = reportOf(provisioning, failure, session.receiverState());
    unit.insert(u"time"_s, start.toString(Qt::ISODateWithMs));
    unit.insert(u"milliseconds"_s, timer.elapsed());
    try {
        report.writeLine(QJsonDocument(unit).toJson(QJsonDocument::Compact));
    } catch (const Failure &unwritten) {
        if (!failure) {
            throw Failure(unwritten.exit, u"The receiver is provisioned. "_s + unwritten.message);
        }
        session.console().warn(unwritten.message);
    }
    if (failure)
        throw Failure(*failure);
    return Exit::Success;
}

} // namespace

std::span<const Option> stepOptions()
{
    return steps;
}

std::span<const Option> fileOptions()
{
    return std::span(steps).subspan<2>();
}

void checkProvisioning(Session &session, const CommandLine &line)
{
    [[maybe_unused]] const Provisioning checked(session, line);
}

const Command provisionCommand{
    .name = "provision",
    .arguments = "[--time TIME] [--serial TEXT] [--configuration FILE] ...",
    .summary = "Run a whole session: connect, clock, serial number, files, end.",
    .options = {steps, transferOptions, busOptions, sendOptions, receiverOptions, slotOptions,
                reportOptions},
    .run = runProvision};

} // namespace Shipwright
