#include "commands.h"

#include "console.h"
#include "junit.h"
#include "session.h"

#include "conformance.h"
#include "decoder.h"

#include <QJsonArray>

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

using Outcome = ConformanceResult::Outcome;

constexpr Option destructiveOption{
    "destructive", nullptr,
    "Also run the checks that set the clock and the serial number (to \"TEST12345678\"), "
    "install a configuration (\"{}\") and replace the menu and package files."};
constexpr Option onlyOption{"only", "TEXT", "Run the checks whose names contain TEXT."};
constexpr Option listOption{"list", nullptr, "Print the names of the checks without running them."};
constexpr Option junitOption{"report", "FILE", "Write a report in JUnit's XML when it is over."};
constexpr Option ownOptions[] = {destructiveOption, onlyOption, listOption, junitOption};

ConformanceSettings settingsOf(const CommandLine &line, const SendSettings &options)
{
    ConformanceSettings settings;
    settings.destructive = line.isSet(destructiveOption);
    settings.only = line.text(onlyOption);
    if (const auto timeout = options.peer.timeout)
        settings.limits = {*timeout, *timeout, *timeout};
    return settings;
}

void list(Console &console, const QList<ConformanceCheck> &checks)
{
    for (const ConformanceCheck &check : checks) {
        console.report(u"listed"_s,
                       check.name + (check.isDestructive ? u" (--destructive)"_s : QString()),
                       {{u"name"_s, check.name}, {u"destructive"_s, check.isDestructive}});
    }
}

QString outcomeName(Outcome outcome)
{
    switch (outcome) {
    case Outcome::Passed:
        return u"pass"_s;
    case Outcome::Failed:
        return u"fail"_s;
    case Outcome::Skipped:
        return u"skip"_s;
    case Outcome::NotRun:
        break;
    }
    return u"not run"_s;
}

void report(Console &console, const ConformanceResult &result)
{
    const bool isFailed = result.outcome == Outcome::Failed;
    QString text = (isFailed ? u"FAIL"_s : outcomeName(result.outcome)) + u"  "_s + result.name;
    QJsonObject fields{{u"name"_s, result.name},
                       {u"outcome"_s, outcomeName(result.outcome)},
                       {u"milliseconds"_s, result.milliseconds}};
    if (isFailed) {
        const DeviationText deviation(result);
        text += u"\n      sent  %1\n      due   %2\n      came  %3"_s.arg(
            deviation.sent, deviation.due, deviation.came);
        QJsonArray frames;
        for (const Exchanged &exchanged : result.frames)
            frames += decodedObject(exchanged.frame, decode(exchanged.frame));
        fields.insert(u"sent"_s, deviation.sent);
        fields.insert(u"due"_s, deviation.due);
        fields.insert(u"came"_s, deviation.came);
        fields.insert(u"frames"_s, frames);
    }
    console.report(u"check"_s, text, fields);
}

/// \a reason says why checks did not run.
void summarize(Console &console, const Conformance &conformance, const QString &reason)
{
    const qsizetype passed = conformance.count(Outcome::Passed);
    const qsizetype failed = conformance.count(Outcome::Failed);
    const qsizetype skipped = conformance.count(Outcome::Skipped);
    const qsizetype notRun = conformance.count(Outcome::NotRun);
    QString text = u"%1 passed, %2 failed, %3 skipped"_s.arg(passed).arg(failed).arg(skipped);
    if (skipped > 0)
        text += u" (--destructive runs them)"_s;
    if (notRun > 0)
        text += u", %1 not run"_s.arg(notRun) + reason;
    const QStringList changes = conformance.changes();
    text += u".\nOverwritten on the receiver: %1."_s.arg(changes.isEmpty() ? u"nothing"_s
                                                                           : changes.join(u", "_s));
    console.report(u"selftest"_s, text,
                   {{u"passed"_s, passed},
                    {u"failed"_s, failed},
                    {u"skipped"_s, skipped},
                    {u"notRun"_s, notRun},
                    {u"overwritten"_s, QJsonArray::fromStringList(changes)}});
}

Exit runSelftest(Session &session, const CommandLine &line)
{
    Console &console = session.console();
    const SendSettings options(line);
    const ConformanceSettings settings = settingsOf(line, options);
    const QList<ConformanceCheck> checks = conformanceChecks(settings);
    if (checks.isEmpty()) {
        throw Failure(Exit::Usage, u"No check's name contains \"%1\"."_s.arg(settings.only),
                      u"\"shipwright selftest --list\" prints all names."_s);
    }
    if (line.isSet(listOption)) {
        list(console, checks);
        return Exit::Success;
    }

    const QDateTime start = QDateTime::currentDateTimeUtc();
    Peer &peer = session.connect(options);
    std::unique_ptr<WholeOutput> output;
    if (line.isSet(junitOption))
        output = session.openReport(line.text(junitOption));
    Conformance conformance(session.link(), settings);
    std::optional<Failure> failure;
    try {
        // A missing receiver is not a deviation: receiverParameters() throws with the reason.
        while (!conformance.findReceiver())
            peer.receiverParameters();
        conformance.run([&console](const ConformanceResult &result) { report(console, result); });
    } catch (const Failure &cause) {
        failure = cause;
    }
    if (!conformance.results().isEmpty())
        summarize(console, conformance,
                  failure ? QString() : u": the receiver stopped answering"_s);
    if (output)
        output->write(junitReport(conformance, failure, options.bus.interfaceName, start));
    if (failure)
        throw Failure(*failure);
    return conformance.count(Outcome::Failed) == 0 ? Exit::Success : Exit::Deviation;
}

} // namespace

const Command selftestCommand{
    .name = "selftest",
    .arguments = "[--destructive] [--only TEXT] [--list] [--report FILE]",
    .summary = "Check the receiver against the protocol; replaces its generic file.",
    .options = {ownOptions, busOptions, sendOptions},
    .run = runSelftest};

} // namespace Shipwright
