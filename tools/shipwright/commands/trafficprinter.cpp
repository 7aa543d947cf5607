#include "trafficprinter.h"

#include "console.h"
#include "decoder.h"

namespace Shipwright {

using namespace Qt::StringLiterals;

TrafficPrinter::TrafficPrinter(Console &console, const CommandLine &line,
                               const QStringList &interfaces)
    : m_console(console),
      m_isAbsolute(line.isSet(absoluteOption))
{
    for (const QString &text : line.texts(onlyFramesOption))
        m_filter.add(text);
    for (const QString &name : interfaces)
        m_summaries.insert(name, {});
}

QString TrafficPrinter::prefix(const QString &interfaceName) const
{
    return m_summaries.size() > 1 ? interfaceName + u"  "_s : QString();
}

void TrafficPrinter::print(const QString &interfaceName, const QCanBusFrame &frame)
{
    if (!m_start && !m_isAbsolute)
        m_start = microSeconds(frame.timeStamp());
    const Decoded decoded = decode(frame);
    m_summaries[interfaceName].add(frame, decoded);
    if (!m_filter.passes(frame, decoded))
        return;
    QJsonObject fields = decodedObject(frame, decoded);
    fields.insert(u"interface"_s, interfaceName);
    m_console.report(u"frame"_s, prefix(interfaceName) + decodedLine(frame, decoded, m_start),
                     fields);
    m_console.checkOutput();
}

void TrafficPrinter::summarize() const
{
    for (auto it = m_summaries.begin(); it != m_summaries.end(); ++it) {
        QJsonObject fields = it->object();
        fields.insert(u"interface"_s, it.key());
        m_console.report(u"summary"_s, prefix(it.key()) + it->text(), fields);
    }
}

} // namespace Shipwright
