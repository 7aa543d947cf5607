#include "commands.h"
#include "steps.h"

#include "console.h"
#include "session.h"

#include "csv.h"
#include "interruption.h"
#include "ledger.h"
#include "text.h"

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFileInfo>
#include <QJsonDocument>
#include <QProcess>
#include <QSet>
#include <QTimer>

#include <algorithm>
#include <csignal>
#include <deque>
#include <sys/prctl.h>
#include <unistd.h>

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

constexpr Option lineOptions[] = {pluginOption, interfaceOption, bitRateOption, reportOption};

/// Between two questions whether a receiver is there.
constexpr int probeInterval = 500;
/// Questions without an answer after which the unit is taken to be off.
constexpr int probesUnanswered = 3;

/// A row of the table.
struct Unit
{
    QString serial;
    QStringList options; ///< of "provision"
};

QStringList namesOf(std::span<const Option> options)
{
    QStringList names;
    for (const Option &option : options)
        names += QString::fromLatin1(option.name);
    return names;
}

/// The rows of the table, each refused that "provision" would refuse before the first frame.
std::vector<Unit> readUnits(Session &session, const QString &path, bool force)
{
    const QString name = printable(path);
    const auto checkRegular = [](const QString &file) {
        // A pipe could be read only once.
        if (QFileInfo::exists(file) && !QFileInfo(file).isFile())
            throw Failure(Exit::LocalFile, u"%1 is not a regular file."_s.arg(printable(file)));
    };
    checkRegular(path);
    const QList<CsvRow> rows = parseCsv(session.contentOf(path), name);
    const QStringList header = rows.isEmpty() ? QStringList() : rows.first().cells;
    const QStringList known = namesOf(stepOptions());
    const QStringList files = namesOf(fileOptions());
    QString problem = header.contains(u"serial"_s) ? QString() : u"serial\" is missing"_s;
    for (const QString &column : header) {
        if (!known.contains(column) || header.count(column) > 1)
            problem = column + u"\" is unknown, or there twice"_s;
    }
    if (!problem.isEmpty()) {
        throw Failure(Exit::Usage, u"%1: the column \"%2."_s.arg(name, problem),
                      u"The first line names the columns: %1."_s.arg(known.join(u", "_s)));
    }

    std::vector<Unit> units;
    QHash<QString, int> lines;
    QSet<std::pair<QString, QString>> filesRead;
    for (const CsvRow &row : rows.mid(1)) {
        Unit unit{row.cells.at(header.indexOf(u"serial"_s)), {}};
        QHash<QString, QStringList> unchecked{{u"serial"_s, {unit.serial}}};
        if (force)
            unchecked.insert(QString::fromLatin1(forceOption.name), {});
        try {
            for (qsizetype i = 0; i < header.size(); ++i) {
                const QString &column = header.at(i);
                QString value = row.cells.at(i);
                if (value.isEmpty())
                    continue;
                unit.options += u"--%1=%2"_s.arg(column, value);
                if (files.contains(column)) {
                    // From where the table is.
                    value = QFileInfo(path).absoluteDir().filePath(value);
                    checkRegular(value);
                }
                // One reading of a file is enough for all rows.
                if (!filesRead.contains({column, value}))
                    unchecked.insert(column, {value});
                if (files.contains(column))
                    filesRead.insert({column, value});
            }
            checkProvisioning(session, CommandLine({}, unchecked, {}));
            if (lines.contains(unit.serial)) {
                throw Failure(Exit::Usage,
                              u"The serial number \"%1\" is that of line %2 too."_s.arg(unit.serial)
                                  .arg(lines.value(unit.serial)));
            }
        } catch (const Failure &failure) {
            throw Failure(failure.exit,
                          u"%1, line %2: %3"_s.arg(name).arg(row.line).arg(failure.message),
                          failure.hint);
        }
        lines.insert(unit.serial, row.line);
        units.push_back(std::move(unit));
    }
    return units;
}

/// Those of \a options that were given, as another process takes them.
QStringList passedOn(const CommandLine &line, const std::vector<Option> &options)
{
    QStringList arguments;
    for (const Option &option : options) {
        const QString name = u"--"_s + QLatin1StringView(option.name);
        if (!option.value && line.isSet(option))
            arguments += name;
        for (const QString &value : line.texts(option))
            arguments += name + u'=' + value;
    }
    return arguments;
}

/// Gives the units to the receivers that show up on the interfaces, each in a process of its own.
class ProductionLine
{
public:
    ProductionLine(Session &session, const CommandLine &line);
    void run();

private:
    /// An interface and who is there.
    struct Lane
    {
        QString interfaceName;
        QProcess process;
        QTimer nextProbe;
        const Unit *unit = nullptr; ///< being provisioned
        QJsonObject failure;        ///< that the process has told
        bool hasServedUnit = false; ///< one that was not taken off yet
        int unanswered = 0;         ///< probes, one after another
        QString result;             ///< of the last unit
        QString text;               ///< shown
    };

    void start(Lane &lane, const QStringList &arguments);
    void readEvents(Lane &lane);
    void processEnded(Lane &lane);
    void probed(Lane &lane, int status);
    void give(Lane &lane);
    void unitEnded(Lane &lane, int status);
    void stop();
    void show(Lane &lane, const QString &state, const QString &text, bool stays = false);

    Console &m_console;
    std::vector<Unit> m_units;
    std::unique_ptr<Ledger> m_ledger;
    QString m_ledgerPath;
    std::deque<const Unit *> m_waiting; ///< were not given away yet
    std::deque<Lane> m_lanes;
    QStringList m_probe;              ///< arguments that ask whether a unit is there
    QStringList m_provision;          ///< arguments that provision one, without the row's
    std::optional<Failure> m_failure; ///< why no more units can be given away
};

ProductionLine::ProductionLine(Session &session, const CommandLine &line)
    : m_console(session.console())
{
    [[maybe_unused]] const SendSettings checked(line);
    QStringList interfaces = line.texts(interfaceOption);
    if (interfaces.isEmpty())
        interfaces += line.text(interfaceOption);
    if (interfaces.removeDuplicates() > 0)
        throw Failure(Exit::Usage, u"An interface is given twice."_s);
    const QString path = line.arguments.first();
    m_units = readUnits(session, path, line.isSet(forceOption));

    const QString report = line.isSet(reportOption) ? line.text(reportOption) : path + u".report"_s;
    session.openOutput(u"The report"_s, report);
    m_ledgerPath = path + u".state"_s;
    session.openOutput(u"The state"_s, m_ledgerPath);
    m_ledger = std::make_unique<Ledger>(m_ledgerPath);
    for (const Unit &unit : m_units) {
        if (!m_ledger->units().contains(unit.serial))
            m_waiting.push_back(&unit);
    }

    const QStringList common = passedOn(
        line, {pluginOption, bitRateOption, timeoutOption, destinationOption});
    m_probe = QStringList{u"info"_s} + common;
    m_provision = QStringList{u"provision"_s, u"--report="_s + QFileInfo(report).absoluteFilePath()}
        + common + passedOn(line, {slotOption, retriesOption, forceOption, faultOption});
    for (const QString &name : interfaces) {
        Lane &lane = m_lanes.emplace_back();
        lane.interfaceName = name;
        // The unit that was there when the line stopped may still be there.
        for (const QJsonObject &unit : m_ledger->units())
            lane.hasServedUnit |= unit.value(u"interface"_s) == name;
        lane.process.setWorkingDirectory(QFileInfo(path).absolutePath());
        lane.process.setStandardInputFile(QProcess::nullDevice());
        lane.process.setStandardErrorFile(QProcess::nullDevice());
        // Ctrl-C on a terminal is for this process; it ends with the others, whatever ends it.
        lane.process.setChildProcessModifier([] {
            setpgid(0, 0);
            prctl(PR_SET_PDEATHSIG, SIGTERM);
        });
        QObject::connect(&lane.process, &QProcess::readyReadStandardOutput, &lane.process,
                         [this, &lane] { readEvents(lane); });
        QObject::connect(&lane.process, &QProcess::finished, &lane.process,
                         [this, &lane] { processEnded(lane); });
        lane.nextProbe.setSingleShot(true);
        QObject::connect(&lane.nextProbe, &QTimer::timeout, &lane.process,
                         [this, &lane] { start(lane, m_probe); });
    }
}

void ProductionLine::run()
{
    const auto isAtWork = [](const Lane &lane) {
        return lane.nextProbe.isActive() || lane.process.state() != QProcess::NotRunning;
    };
    if (!m_waiting.empty())
        std::for_each(m_lanes.begin(), m_lanes.end(), [this](Lane &lane) { start(lane, m_probe); });
    bool isStopping = false;
    while (std::any_of(m_lanes.begin(), m_lanes.end(), isAtWork)) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        if (Interruption::hasCome() && !std::exchange(isStopping, true))
            stop();
    }

    QStringList failed;
    qsizetype done = 0;
    for (const Unit &unit : m_units) {
        const QJsonValue state = m_ledger->units().value(unit.serial).value(u"state"_s);
        done += state == u"done"_s ? 1 : 0;
        if (state == u"failed"_s)
            failed += unit.serial;
    }
    const auto left = qsizetype(m_waiting.size());
    m_console.report(u"units"_s,
                     u"%1 done, %2 failed, %3 left."_s.arg(done).arg(failed.size()).arg(left),
                     {{u"done"_s, done}, {u"failed"_s, failed.size()}, {u"left"_s, left}});
    if (m_failure)
        throw Failure(*m_failure);
    if (!failed.isEmpty()) {
        throw Failure(Exit::UnitFailed, u"Not provisioned: %1."_s.arg(failed.join(u", "_s)),
                      u"%1 says why. To give a unit away again, remove its line there."_s.arg(
                          printable(m_ledgerPath)));
    }
}

void ProductionLine::stop()
{
    m_failure = Failure(Exit::Interrupted, u"Interrupted."_s);
    for (Lane &lane : m_lanes) {
        lane.nextProbe.stop();
        if (lane.process.state() != QProcess::NotRunning)
            kill(pid_t(lane.process.processId()), SIGINT);
    }
}

// NOLINTBEGIN(misc-no-recursion): a start that fails comes back here at most once, with a unit
void ProductionLine::start(Lane &lane, const QStringList &arguments)
{
    lane.failure = {};
    lane.process.start(QCoreApplication::applicationFilePath(),
                       arguments
                           + QStringList{u"--json"_s, u"--interface="_s + lane.interfaceName});
    if (!lane.process.waitForStarted())
        processEnded(lane);
}

void ProductionLine::readEvents(Lane &lane)
{
    while (lane.process.canReadLine()) {
        const QJsonObject event = QJsonDocument::fromJson(lane.process.readLine()).object();
        if (event.value(u"event"_s) == u"failure"_s)
            lane.failure = event;
        if (lane.unit && event.value(u"event"_s) == u"progress"_s) {
            constexpr int width = 20;
            const int percent = event.value(u"percent"_s).toInt();
            const int filled = percent * width / 100;
            show(lane, u"sending"_s,
                 u"%1 [%2%3] %4 % of the %5 file"_s
                     .arg(lane.unit->serial, QString(filled, u'#'), QString(width - filled, u'-'))
                     .arg(percent, 3)
                     .arg(event.value(u"type"_s).toString()));
        }
    }
}

void ProductionLine::processEnded(Lane &lane)
{
    readEvents(lane);
    const bool hasStatus = lane.process.error() != QProcess::FailedToStart
        && lane.process.exitStatus() == QProcess::NormalExit;
    const int status = hasStatus ? lane.process.exitCode() : -1;
    try {
        if (lane.unit)
            unitEnded(lane, status);
        else if (!m_failure && !m_waiting.empty())
            probed(lane, status);
        else if (!m_failure)
            show(lane, u"ended"_s, u"No rows left."_s);
    } catch (const Failure &failure) {
        m_failure = failure;
    }
}

void ProductionLine::probed(Lane &lane, int status)
{
    const bool isSilent = status == int(Exit::NoAnswer) || status == int(Exit::SendBlocked);
    if (status == 0 && !lane.hasServedUnit) {
        give(lane);
        return;
    }
    if (status == 0)
        lane.unanswered = 0;
    else if (isSilent && ++lane.unanswered >= probesUnanswered)
        lane.hasServedUnit = false;

    if (status != 0 && !isSilent)
        show(lane, u"trouble"_s, lane.failure.value(u"message"_s).toString());
    else if (lane.hasServedUnit)
        show(lane, u"served"_s, u"Take the unit off. "_s + lane.result);
    else
        show(lane, u"waiting"_s, u"Waiting for a unit."_s);
    lane.nextProbe.start(probeInterval);
}

void ProductionLine::give(Lane &lane)
{
    const Unit *const unit = m_waiting.front();
    // On the disk before the first frame: whatever happens, no other unit gets this row.
    m_ledger->set(unit->serial, u"started"_s, lane.interfaceName);
    m_waiting.pop_front();
    lane.unit = unit;
    show(lane, u"started"_s, u"%1 started."_s.arg(unit->serial));
    start(lane, m_provision + unit->options);
}
// NOLINTEND(misc-no-recursion)

void ProductionLine::unitEnded(Lane &lane, int status)
{
    const QString serial = std::exchange(lane.unit, nullptr)->serial;
    const QString state = status == 0 ? u"done"_s : u"failed"_s;
    QString cause;
    if (status != 0) {
        cause = (lane.failure.value(u"message"_s).toString() + u' '
                 + lane.failure.value(u"receiver"_s).toString())
                    .trimmed();
        if (cause.isEmpty())
            cause = u"The process crashed; what the unit holds is not known."_s;
    }
    lane.hasServedUnit = true;
    lane.unanswered = 0;
    lane.result = u"%1 %2%3"_s.arg(serial, state, cause.isEmpty() ? u"."_s : u": "_s + cause);
    show(lane, state, lane.result, true);
    m_ledger->set(serial, state, lane.interfaceName, cause);
    if (!m_failure && !m_waiting.empty())
        lane.nextProbe.start(probeInterval);
}

void ProductionLine::show(Lane &lane, const QString &state, const QString &text, bool stays)
{
    if (text == lane.text && !stays)
        return;
    lane.text = text;
    QStringList lines;
    for (const Lane &other : m_lanes)
        lines += u"%1: %2"_s.arg(other.interfaceName, other.text);
    if (stays || !m_console.showLines(lines)) {
        m_console.report(
            u"line"_s, u"%1: %2"_s.arg(lane.interfaceName, text),
            {{u"interface"_s, lane.interfaceName}, {u"state"_s, state}, {u"message"_s, text}});
    }
    if (stays)
        m_console.showLines(lines);
}

Exit runLine(Session &session, const CommandLine &line)
{
    ProductionLine(session, line).run();
    return Exit::Success;
}

} // namespace

const Command lineCommand{
    .name = "line",
    .arguments = "UNITS.csv [--interface NAME] ...",
    .summary = "Provision unit after unit, on several interfaces at once.",
    .leastArguments = 1,
    .mostArguments = 1,
    .options = {lineOptions, transferOptions, sendOptions, receiverOptions, slotOptions},
    .run = runLine};

} // namespace Shipwright
