#include "commands.h"

#include "console.h"
#include "session.h"

#include "candump.h"
#include "decoder.h"

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

/// Prints a frame for each line read.
class LogReader
{
public:
    explicit LogReader(Console &console)
        : m_console(console)
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
        if (!m_start)
            m_start = microSeconds(entry->frame.timeStamp());
        m_console.report(u"frame"_s, decodedLine(entry->frame, *m_start),
                         decodedObject(entry->frame));
        m_console.checkOutput();
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
    Console &m_console;
    qint64 m_number = 0;
    std::optional<qint64> m_start;
    QStringList m_undecoded;
};

Exit run(Session &session, const CommandLine &line)
{
    Input input(line.arguments.value(0, u"-"_s));
    session.protect(input);
    LogReader reader(session.console());
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
    .options = {},
    .run = run};

} // namespace Shipwright
