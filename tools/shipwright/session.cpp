#include "session.h"

#include "candump.h"
#include "console.h"
#include "failure.h"
#include "text.h"

#include <QCanBus>
#include <QCanBusDeviceInfo>

#include <net/if.h>
#include <unistd.h>
#include <utility>

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

void checkStandardOutput(const FileIdentity &identity, const QString &message)
{
    for (const int output : {STDOUT_FILENO, STDERR_FILENO}) {
        if (storedFile(output) == identity)
            throw Failure(Exit::Usage, message);
    }
}

} // namespace

Session::Session(Console &console)
    : m_console(console)
{
}

QByteArray Session::contentOf(const QString &path)
{
    Input input(path);
    protect(input);
    return input.readAll();
}

void Session::protect(const Input &input)
{
    if (input.isStandardInput() && std::exchange(m_hasReadStandardInput, true))
        throw Failure(Exit::Usage, u"Standard input can be read only once."_s);
    if (const std::optional<FileIdentity> identity = input.identity()) {
        m_inputs.push_back(*identity);
        checkStandardOutput(*identity,
                            u"%1 is both the input and the output."_s.arg(input.shownName()));
    }
}

Output &Session::openOutput(const QString &what, const QString &path)
{
    // More than what is reported at a time takes, whatever the names in it.
    constexpr qint64 room = 1 << 15;
    auto output = std::make_unique<Output>(what, path, m_inputs);
    if (const std::optional<FileIdentity> identity = output->identity())
        checkStandardOutput(
            *identity, u"%1 and standard output are the same file."_s.arg(output->shownName()));
    checkAlone(*output);
    output->reserve(room);
    return *m_outputs.emplace_back(std::move(output));
}

void Session::checkAlone(const Output &output) const
{
    for (const std::unique_ptr<Output> &other : m_outputs) {
        if (output.identity() && output.identity() == other->identity()) {
            throw Failure(
                Exit::Usage,
                u"%1 and %2 are the same file."_s.arg(other->shownName(), output.shownName()));
        }
    }
}

std::unique_ptr<WholeOutput> Session::openReport(const QString &path) const
{
    std::vector<FileIdentity> used = m_inputs;
    for (const auto &identity : {storedFile(STDOUT_FILENO), storedFile(STDERR_FILENO),
                                 m_log ? m_log->identity() : std::nullopt}) {
        if (identity)
            used.push_back(*identity);
    }
    return std::make_unique<WholeOutput>(u"The report"_s, path, used);
}

Link &Session::listen(const BusSettings &settings)
{
    if (m_link)
        m_others.emplace_back(std::move(m_device), std::move(m_link));
    createDevice(settings);
    m_link = std::make_unique<Link>(*m_device, m_clock);
    open(settings);
    return *m_link;
}

Peer &Session::connect(const SendSettings &settings)
{
    createDevice(settings.bus);
    lockInterface(settings.bus);
    m_link = std::make_unique<Link>(*m_device, m_clock);
    m_link->setFaults(settings.faults);
    m_link->endOnForeignFrames();
    if (settings.peer.timeout)
        m_link->setSendTimeout(*settings.peer.timeout);
    m_peer = std::make_unique<Peer>(*m_link, settings.peer);
    open(settings.bus);
    return *m_peer;
}

void Session::createDevice(const BusSettings &settings)
{
    QString error;
    m_device.reset(
        QCanBus::instance()->createDevice(settings.plugin, settings.interfaceName, &error));
    if (!m_device) {
        throw Failure(
            Exit::Interface,
            u"The CAN plugin \"%1\" has no interface \"%2\": %3"_s.arg(
                settings.plugin, settings.interfaceName, error),
            u"Plugins on this computer: %1."_s.arg(QCanBus::instance()->plugins().join(u", "_s)));
    }
    m_device->setConfigurationParameter(QCanBusDevice::LoopbackKey, true);
    m_device->setConfigurationParameter(QCanBusDevice::ReceiveOwnKey, false);
    m_device->setConfigurationParameter(QCanBusDevice::CanFdKey, false);
    m_device->setConfigurationParameter(
        QCanBusDevice::ErrorFilterKey,
        QVariant::fromValue(QCanBusFrame::FrameErrors(QCanBusFrame::AnyError)));
    if (settings.bitRate)
        m_device->setConfigurationParameter(QCanBusDevice::BitRateKey, *settings.bitRate);
}

void Session::lockInterface(const BusSettings &settings)
{
    const QString serialNumber = m_device->deviceInfo().serialNumber();
    const QByteArray name = settings.interfaceName.toUtf8();
    // A plugin may replace SocketCAN and have interfaces that the kernel does not know. The serial
    // number then identifies the bus; without one, two buses may have the same name.
    if (settings.plugin == u"socketcan" && serialNumber.isEmpty()
        && if_nametoindex(name.constData()) == 0)
        return;
    m_lock = std::make_unique<InterfaceLock>(settings.plugin.toUtf8() + '\n' + name + '\n'
                                                 + serialNumber.toUtf8(),
                                             settings.interfaceName);
}

void Session::open(const BusSettings &settings)
{
    if (m_interrupted)
        m_link->interrupt();
    const bool isFirst = !m_log;
    startLog(settings);
    QString advice =
        u"Check that the adapter is plugged in and that its driver knows the interface "
        "\"%1\"."_s.arg(printable(settings.interfaceName));
    if (settings.plugin == u"socketcan") {
        advice =
            u"Check that the kernel supports CAN (modprobe can-raw), that the interface exists "
            "(ip link show type can) and that it is up "
            "(ip link set %1 up type can bitrate %2)."_s.arg(printable(settings.interfaceName))
                .arg(settings.bitRate.value_or(1'000'000));
    }
    try {
        m_link->open(advice);
    } catch (const Failure &) {
        // The destructors of some plugins abort the program when their device could not be opened.
        // Volatile: otherwise the optimiser drops the pointer, and leak checkers report the device.
        [[maybe_unused]] static const QCanBusDevice *volatile left = nullptr;
        left = m_device.release();
        throw;
    }
    if (m_log && isFirst)
        m_log->start();
}

void Session::startLog(const BusSettings &settings)
{
    if (settings.logFile.isEmpty())
        return;
    if (!m_log) {
        m_log = std::make_unique<Output>(u"The log"_s, settings.logFile, m_inputs);
        checkAlone(*m_log);
    }
    m_link->addObserver(
        [this, name = settings.interfaceName](const QCanBusFrame &frame, Direction) {
            m_log->write(Candump::format(name, frame));
        });
}

void Session::interrupt()
{
    m_interrupted = true;
    for (const auto &[device, link] : m_others)
        link->interrupt();
    if (m_link)
        m_link->interrupt();
}

QString Session::receiverState() const
{
    return m_peer ? m_peer->receiverState() : QString();
}

} // namespace Shipwright
