#include "commands.h"

#include "session.h"
#include "trafficprinter.h"

#include "candump.h"

#include <QScopeGuard>

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

/// Prints a frame for each line read.
class LogReader
{
public:
    explicit LogReader(TrafficPrinter &printer)
        : m_printer(printer)
    {
    }

    void read(const QByteArray &line)
    {
        ++m_number;
        const auto entry = Candump::parse(line);
        if (!entry) {
            if (!line.trimmed().isEmpty())
                m_undecoded += QString::number(m_number);
            return;
        }
        m_printer.print(entry->interfaceName, entry->frame);
    }

    /// Throws a Failure if some lines hold no frame.
    void finish() const
    {
        if (m_undecoded.isEmpty())
            return;
        constexpr qsizetype shown = 10;
        const QString more = m_undecoded.size() > shown ? u", ..."_s : QString();
        throw Failure(Exit::LocalFile,
                      u"%1 of the lines hold no classic CAN frame in candump's format: %2%3."_s
                          .arg(m_undecoded.size())
                          .arg(m_undecoded.mid(0, shown).join(u", "_s), more),
                      u"Record with candump -L or with shipwright --log."_s);
    }

private:
    TrafficPrinter &m_printer;
    qint64 m_number = 0;
    QStringList m_undecoded;
};

Exit runDecode(Session &session, const CommandLine &line)
{
    Input input(line.arguments.value(0, u"-"_s));
    session.protect(input);
    TrafficPrinter printer(session.console(), line);
    const auto atTheEnd = qScopeGuard([&printer] { printer.summarize(); });
    LogReader reader(printer);
    QByteArray pending;
    for (QByteArray bytes = input.read(); !bytes.isEmpty(); bytes = input.read()) {
        pending += bytes;
        qsizetype start = 0;
        for (qsizetype end = 0; (end = pending.indexOf('\n', start)) >= 0; start = end + 1)
            reader.read(pending.mid(start, end - start));
        pending.remove(0, start);
    }
    if (!pending.isEmpty())
        reader.read(pending);
    reader.finish();
    return Exit::Success;
}

} // namespace

const Command decodeCommand{
    .name = "decode",
    .arguments = "[FILE]",
    .summary = "Print a candump log, or standard input, one readable line per frame.",
    .mostArguments = 1,
    .options = {trafficOptions},
    .run = runDecode};

} // namespace Shipwright
