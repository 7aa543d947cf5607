#include "commands.h"

#include "console.h"
#include "session.h"

#include "conformance.h"

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

constexpr Option destructiveOption{
    "destructive", nullptr,
    "Also run the checks that set the clock and the serial number (to \"TEST12345678\") "
    "and install a configuration (\"{}\"); menu and package files are replaced too."};
constexpr Option ownOptions[] = {destructiveOption};

Exit run(Session &session, const CommandLine &line)
{
    using Outcome = ConformanceResult::Outcome;
    // Nobody there is not a deviation.
    const SendSettings options(line);
    session.connect(options).receiverParameters();

    ConformanceSettings settings;
    settings.destructive = line.isSet(destructiveOption);
    if (options.peer.timeout) {
        settings.timeout = *options.peer.timeout;
        settings.completeTimeout = settings.timeout;
    }
    int passed = 0;
    int skipped = 0;
    Console &console = session.console();
    const auto report = [&](const ConformanceResult &result) {
        QString outcome = u"pass"_s;
        if (result.outcome == Outcome::Failed)
            outcome = u"FAIL"_s;
        else if (result.outcome == Outcome::Skipped)
            outcome = u"skip"_s;
        passed += result.outcome == Outcome::Passed;
        skipped += result.outcome == Outcome::Skipped;
        QString text = outcome + u"  "_s + result.name;
        if (!result.deviation.isEmpty())
            text += u"\n      "_s + result.deviation;
        console.report(u"check"_s, text,
                       {{u"name"_s, result.name},
                        {u"outcome"_s, outcome.toLower()},
                        {u"deviation"_s, result.deviation}});
    };
    const int failed = checkConformance(session.link(), settings, report);
    QString summary = u"%1 passed, %2 failed, %3 skipped"_s.arg(passed).arg(failed).arg(skipped);
    if (skipped > 0)
        summary += u" (--destructive runs them)"_s;
    console.report(u"selftest"_s, summary + u'.',
                   {{u"passed"_s, passed}, {u"failed"_s, failed}, {u"skipped"_s, skipped}});
    return failed == 0 ? Exit::Success : Exit::Deviation;
}

} // namespace

const Command selftestCommand{
    .name = "selftest",
    .arguments = "[--destructive]",
    .summary = "Check the receiver against the protocol; replaces its generic file.",
    .options = {ownOptions, busOptions, sendOptions},
    .run = run};

} // namespace Shipwright
