#pragma once

#include "clock.h"
#include "link.h"
#include "options.h"
#include "peer.h"

#include <QCanBusDevice>
#include <QFile>

#include <memory>

namespace Shipwright {

class Console;

/// What a command works with. The bus is opened when it is first asked for.
class Session
{
public:
    Session(const Options &options, const QCommandLineParser &parser, Console &console);

    const Options &options() const { return m_options; }
    const QCommandLineParser &parser() const { return m_parser; }
    Console &console() const { return m_console; }

    Link &link();
    Peer &peer();

    void interrupt();
    QString receiverState() const;

private:
    void openBus();
    void startLog();

    const Options &m_options;
    const QCommandLineParser &m_parser;
    Console &m_console;
    SystemClock m_clock;
    QFile m_log;
    std::unique_ptr<QCanBusDevice> m_device;
    std::unique_ptr<Link> m_link;
    std::unique_ptr<Peer> m_peer;
    bool m_interrupted = false;
};

} // namespace Shipwright
