#pragma once

#include "clock.h"
#include "files.h"
#include "interfacelock.h"
#include "link.h"
#include "options.h"
#include "peer.h"

#include <QCanBusDevice>

#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace Shipwright {

class Console;

/// What a command works with: local files, the bus, the receiver.
class Session
{
public:
    explicit Session(Console &console);

    Console &console() const { return m_console; }

    /// The whole content of a file to send.
    QByteArray contentOf(const QString &path);
    /// Refuses every output that would overwrite \a input.
    void protect(const Input &input);
    /// Opens a file to report to, so that what is wrong with it shows before the first frame; no other
    /// output may go there. \a what names its purpose in messages.
    Output &openOutput(const QString &what, const QString &path);

    /// A file to report to at the end, apart from all others. To be called when the bus is open.
    std::unique_ptr<WholeOutput> openReport(const QString &path) const;

    /// Opens a bus for a command that only listens. It may listen to several, which one log is for.
    Link &listen(const BusSettings &settings);
    /// Locks and opens the bus for a command that sends.
    Peer &connect(const SendSettings &settings);

    Clock &clock() { return m_clock; }
    Link &link() const { return *m_link; }
    Peer &peer() const { return *m_peer; }

    void interrupt();
    QString receiverState() const;

private:
    void checkAlone(const Output &output) const;
    void createDevice(const BusSettings &settings);
    void lockInterface(const BusSettings &settings);
    void startLog(const BusSettings &settings);
    void open(const BusSettings &settings);

    Console &m_console;
    SystemClock m_clock;
    std::vector<FileIdentity> m_inputs;
    bool m_hasReadStandardInput = false;
    std::vector<std::unique_ptr<Output>> m_outputs;
    std::unique_ptr<Output> m_log;
    std::unique_ptr<InterfaceLock> m_lock;
    std::unique_ptr<QCanBusDevice> m_device;
    std::unique_ptr<Link> m_link;
    std::vector<std::pair<std::unique_ptr<QCanBusDevice>, std::unique_ptr<Link>>> m_others;
    std::unique_ptr<Peer> m_peer;
    bool m_interrupted = false;
};

} // namespace Shipwright
