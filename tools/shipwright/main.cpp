#include "commands.h"
#include "console.h"
#include "options.h"
#include "session.h"

#include <QCoreApplication>
#include <QLoggingCategory>
#include <QSocketNotifier>

#include <csignal>
#include <cstdio>
#include <sys/socket.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace Shipwright;

namespace {

int signalPipe[2];

void onSignal(int)
{
    const char byte = 0;
    [[maybe_unused]] const ssize_t written = write(signalPipe[1], &byte, 1);
}

/// Lets the event loop see SIGINT and SIGTERM; a second one ends the program at once.
void watchSignals()
{
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, signalPipe) != 0)
        return;
    struct sigaction action = {};
    action.sa_handler = onSignal;
    action.sa_flags = int(SA_RESETHAND);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

QString commandList()
{
    QString text = u"\n\nCommands:\n"_s;
    for (const Command *command : allCommands()) {
        const QString call = u"%1 %2"_s.arg(QLatin1StringView(command->name),
                                            QLatin1StringView(command->arguments));
        text += u"  %1\n      %2\n"_s.arg(call.trimmed(), QLatin1StringView(command->summary));
    }
    return text.trimmed().prepend(u"\n\n"_s);
}

const Command *findCommand(const QString &name)
{
    for (const Command *command : allCommands()) {
        if (name == QLatin1StringView(command->name))
            return command;
    }
    return nullptr;
}

} // namespace

int main(int argc, char *argv[])
{
    // The plugins warn about optional libraries; what matters is in the failures.
    QLoggingCategory::setFilterRules(u"qt.canbus*=false\ndefault.warning=false"_s);
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(u"shipwright"_s);
    QCoreApplication::setApplicationVersion(QStringLiteral(SHIPWRIGHT_VERSION));

    QCommandLineParser parser;
    parser.addHelpOption();
    parser.addVersionOption();
    addCommonOptions(parser);
    // The command's own options are known once the command is.
    parser.parse(QCoreApplication::arguments());
    const Command *command = findCommand(parser.positionalArguments().value(0));
    parser.clearPositionalArguments();
    if (command) {
        parser.setApplicationDescription(QString::fromLatin1(command->summary));
        parser.addPositionalArgument(
            QString::fromLatin1(command->name), {},
            u"%1 %2"_s.arg(QLatin1StringView(command->name), QLatin1StringView(command->arguments))
                .trimmed());
        if (command->addOptions)
            command->addOptions(parser);
    } else {
        parser.setApplicationDescription(
            u"Service tool: provisions, tests and watches a Dockhand receiver on a CAN bus."_s
            + commandList());
        parser.addPositionalArgument(u"command"_s,
                                     u"What to do; \"shipwright COMMAND --help\" "
                                     "tells more."_s,
                                     u"COMMAND [ARGUMENTS]"_s);
    }
    const bool parsed = parser.parse(QCoreApplication::arguments());
    if (parser.isSet(u"version"_s))
        parser.showVersion();
    if (parser.isSet(u"help"_s) || parser.isSet(u"help-all"_s))
        parser.showHelp();

    Console console(parser.isSet(u"json"_s), Console::terminalColumns());
    std::optional<Session> session;
    try {
        QStringList arguments = parser.positionalArguments();
        const QString help = command
            ? u"shipwright %1 --help"_s.arg(QLatin1StringView(command->name))
            : u"shipwright --help"_s;
        if (!arguments.isEmpty() && !command)
            throw Failure(Exit::Usage, u"\"%1\" is not a command."_s.arg(arguments.first()), help);
        if (!parsed)
            throw Failure(Exit::Usage, parser.errorText(), help);
        if (!command)
            throw Failure(Exit::Usage, u"No command given."_s, help);
        arguments.removeFirst();
        if (arguments.size() < command->leastArguments
            || arguments.size() > command->mostArguments) {
            throw Failure(Exit::Usage,
                          u"Usage: shipwright %1 %2"_s.arg(QLatin1StringView(command->name),
                                                           QLatin1StringView(command->arguments)),
                          help);
        }
        const Options options = readCommonOptions(parser);
        session.emplace(options, parser, console);
        watchSignals();
        QSocketNotifier notifier(signalPipe[0], QSocketNotifier::Read);
        QObject::connect(&notifier, &QSocketNotifier::activated, &app, [&session, &notifier] {
            notifier.setEnabled(false);
            session->interrupt();
        });
        return int(command->run(*session, arguments));
    } catch (const Failure &failure) {
        console.failure(failure, session ? session->receiverState() : QString());
        return int(failure.exit);
    }
}
