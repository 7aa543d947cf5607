#include "commands.h"
#include "console.h"
#include "files.h"
#include "interruption.h"
#include "options.h"
#include "session.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QLoggingCategory>
#include <QSocketNotifier>

#include <span>
#include <unistd.h>
#include <vector>

using namespace Qt::StringLiterals;
using namespace Shipwright;

namespace {

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

std::vector<Option> optionsOf(const Command *command)
{
    if (!command)
        return {};
    std::vector<Option> options{jsonOption};
    for (const std::span<const Option> group : command->options)
        options.insert(options.end(), group.begin(), group.end());
    return options;
}

QCommandLineOption parserOption(const Option &option)
{
    QString help = QString::fromLatin1(option.help);
    if (option.variable)
        help += u" [%1]"_s.arg(QLatin1StringView(option.variable));
    return {QString::fromLatin1(option.name), help,
            QString::fromLatin1(option.value ? option.value : "")};
}

/// Adds every command's options, so that no value is mistaken for a command.
void addHiddenOptions(QCommandLineParser &parser)
{
    QStringList known;
    for (const Command *command : allCommands()) {
        for (const Option &option : optionsOf(command)) {
            QCommandLineOption hidden = parserOption(option);
            if (known.contains(hidden.names().constFirst()))
                continue;
            known += hidden.names();
            hidden.setFlags(QCommandLineOption::HiddenFromHelp);
            parser.addOption(hidden);
        }
    }
}

/// What is neither an option nor an option's value: the command and its arguments.
QStringList positionalArguments(const QStringList &arguments)
{
    QCommandLineParser parser;
    addHiddenOptions(parser);
    parser.parse(arguments);
    return parser.positionalArguments();
}

/// Prepares the parser for \a command, or for the help alone when there is none.
void addTable(QCommandLineParser &parser, const Command *command)
{
    parser.addHelpOption();
    parser.addVersionOption();
    if (!command) {
        parser.setApplicationDescription(
            u"Service tool: provisions, tests and watches a Dockhand receiver on a CAN bus."_s
            + commandList());
        parser.addPositionalArgument(
            u"command"_s, u"What to do; \"shipwright COMMAND --help\" lists its options."_s,
            u"COMMAND [OPTIONS] [ARGUMENTS]"_s);
        addHiddenOptions(parser);
        return;
    }
    parser.setApplicationDescription(QString::fromLatin1(command->summary));
    parser.addPositionalArgument(
        QString::fromLatin1(command->name), {},
        u"%1 %2"_s.arg(QLatin1StringView(command->name), QLatin1StringView(command->arguments))
            .trimmed());
    for (const Option &option : optionsOf(command))
        parser.addOption(parserOption(option));
}

/// What a shell offers for the last of \a words; nothing where the user gives a name or a value.
QStringList completions(QStringList words)
{
    const QString begun = words.isEmpty() ? QString() : words.takeLast();
    const QStringList positional = positionalArguments(QStringList{u"shipwright"_s} + words);
    const Command *command = findCommand(positional.value(0));
    QStringList offered{u"--help"_s, u"--version"_s};
    for (const Option &option : optionsOf(command)) {
        offered += u"--"_s + QLatin1StringView(option.name);
        if (option.value && !words.isEmpty() && words.constLast() == offered.constLast())
            return {};
    }
    if (positional.isEmpty()) {
        for (const Command *known : allCommands())
            offered += QString::fromLatin1(known->name);
    } else if (command) {
        // Words that are typed as they stand in "configuration|menu|generic|package FILE".
        QString argument = QString::fromLatin1(command->arguments)
                               .section(u' ', positional.size() - 1, positional.size() - 1);
        for (const QString &word :
             argument.remove(u'[').remove(u']').split(u'|', Qt::SkipEmptyParts)) {
            if (word == word.toLower() && !word.startsWith(u'-'))
                offered += word;
        }
    }
    offered.removeIf([&begun](const QString &word) {
        return !word.startsWith(begun) || word.startsWith(u'-') != begun.startsWith(u'-');
    });
    return offered;
}

CommandLine commandLine(const QCommandLineParser &parser, const Command *command)
{
    QHash<QString, QStringList> given;
    QHash<QString, QStringList> environment;
    for (const Option &option : optionsOf(command)) {
        const QString name = QString::fromLatin1(option.name);
        if (parser.isSet(name))
            given.insert(name, parser.values(name));
        if (option.variable && !qEnvironmentVariableIsEmpty(option.variable))
            environment.insert(name, {qEnvironmentVariable(option.variable)});
    }
    return {parser.positionalArguments().mid(1), given, environment};
}

/// The one interface that \a command works on; empty if it has none, or several.
QString interfaceOf(const CommandLine &line, const Command *command)
{
    for (const Option &option : optionsOf(command)) {
        if (QLatin1StringView(option.name) == QLatin1StringView(interfaceOption.name))
            return line.texts(option).size() > 1 ? QString() : line.text(option);
    }
    return {};
}

/// Throws a Failure if the arguments do not fit the command.
void checkArguments(const QCommandLineParser &parser, bool isParsed, const Command *command)
{
    const QStringList arguments = parser.positionalArguments();
    const QString help = command ? u"shipwright %1 --help"_s.arg(QLatin1StringView(command->name))
                                 : u"shipwright --help"_s;
    if (!arguments.isEmpty() && !command)
        throw Failure(Exit::Usage, u"\"%1\" is not a command."_s.arg(arguments.first()), help);
    if (!isParsed)
        throw Failure(Exit::Usage, parser.errorText(), help);
    if (!command)
        throw Failure(Exit::Usage, u"No command given."_s, help);
    const qsizetype count = arguments.size() - 1;
    if (count < command->leastArguments || count > command->mostArguments) {
        throw Failure(
            Exit::Usage,
            u"Usage: shipwright %1 %2"_s
                .arg(QLatin1StringView(command->name), QLatin1StringView(command->arguments))
                .trimmed(),
            help);
    }
}

} // namespace

int main(int argc, char *argv[])
{
    // The plugins warn about optional libraries. A Failure says what matters.
    QLoggingCategory::setFilterRules(u"qt.canbus*=false\ndefault.warning=false"_s);
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(u"shipwright"_s);
    QCoreApplication::setApplicationVersion(QStringLiteral(SHIPWRIGHT_VERSION));

    const QStringList given = QCoreApplication::arguments();
    if (given.value(1) == u"--complete") {
        for (const QString &word : completions(given.mid(2)))
            writeAll(STDOUT_FILENO, (word + u'\n').toUtf8());
        return 0;
    }
    const Command *command = findCommand(positionalArguments(given).value(0));
    QCommandLineParser parser;
    addTable(parser, command);
    const bool isParsed = parser.parse(given);
    if (parser.isSet(u"version"_s))
        parser.showVersion();
    if (parser.isSet(u"help"_s) || parser.isSet(u"help-all"_s))
        parser.showHelp();

    const CommandLine line = commandLine(parser, command);
    Console console(line.isSet(jsonOption),
                    command ? QString::fromLatin1(command->name) : QString(),
                    interfaceOf(line, command));
    Session session(console);
    try {
        checkArguments(parser, isParsed, command);
        Interruption::watch();
        QSocketNotifier notifier(Interruption::descriptor(), QSocketNotifier::Read);
        QObject::connect(&notifier, &QSocketNotifier::activated, &app, [&session, &notifier] {
            notifier.setEnabled(false);
            session.interrupt();
        });
        const Exit exit = command->run(session, line);
        console.checkOutput();
        return int(exit);
    } catch (const Failure &failure) {
        console.failure(failure, session.receiverState());
        return int(failure.exit);
    }
}
