#include "session.h"

#include "candump.h"
#include "console.h"
#include "failure.h"

#include <QCanBus>

namespace Shipwright {

using namespace Qt::StringLiterals;

Session::Session(const Options &options, const QCommandLineParser &parser, Console &console)
    : m_options(options),
      m_parser(parser),
      m_console(console)
{
}

Link &Session::link()
{
    if (!m_link)
        openBus();
    return *m_link;
}

Peer &Session::peer()
{
    if (!m_peer)
        m_peer = std::make_unique<Peer>(link(), m_options.peer);
    return *m_peer;
}

void Session::openBus()
{
    QString error;
    m_device.reset(
        QCanBus::instance()->createDevice(m_options.plugin, m_options.interfaceName, &error));
    if (!m_device) {
        throw Failure(
            Exit::Interface,
            u"The CAN plugin \"%1\" gives no interface \"%2\": %3"_s.arg(
                m_options.plugin, m_options.interfaceName, error),
            u"Plugins on this computer: %1."_s.arg(QCanBus::instance()->plugins().join(u", "_s)));
    }
    m_device->setConfigurationParameter(QCanBusDevice::LoopbackKey, true);
    m_device->setConfigurationParameter(QCanBusDevice::ReceiveOwnKey, false);
    m_device->setConfigurationParameter(QCanBusDevice::CanFdKey, false);
    m_device->setConfigurationParameter(
        QCanBusDevice::ErrorFilterKey,
        QVariant::fromValue(QCanBusFrame::FrameErrors(QCanBusFrame::AnyError)));
    if (m_options.bitRate)
        m_device->setConfigurationParameter(QCanBusDevice::BitRateKey, *m_options.bitRate);

    m_link = std::make_unique<Link>(*m_device, m_clock);
    m_link->setFaults(m_options.faults);
    if (m_options.peer.timeout)
        m_link->setSendTimeout(*m_options.peer.timeout);
    if (m_interrupted)
        m_link->interrupt();
    startLog();
    m_link->open();
}

void Session::startLog()
{
    if (m_options.logFile.isEmpty())
        return;
    m_log.setFileName(m_options.logFile);
    if (!m_log.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered)) {
        throw Failure(
            Exit::LocalFile,
            u"The log %1 cannot be written: %2."_s.arg(m_options.logFile, m_log.errorString()));
    }
    m_link->addObserver([this](const QCanBusFrame &frame, Direction) {
        const QByteArray line = Candump::format(m_options.interfaceName, frame);
        if (m_log.write(line) != line.size()) {
            throw Failure(
                Exit::LocalFile,
                u"The log %1 cannot be written: %2."_s.arg(m_options.logFile, m_log.errorString()));
        }
    });
}

void Session::interrupt()
{
    m_interrupted = true;
    if (m_link)
        m_link->interrupt();
}

QString Session::receiverState() const
{
    return m_peer ? m_peer->receiverState() : QString();
}

} // namespace Shipwright
