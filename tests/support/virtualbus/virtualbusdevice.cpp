#include "virtualbusdevice.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QVariant>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

QCanBusFrame toQt(const can_frame &frame, QCanBusFrame::TimeStamp timeStamp)
{
    QCanBusFrame result(frame.can_id & CAN_EFF_MASK,
                        QByteArray(reinterpret_cast<const char *>(frame.data),
                                   std::min<qsizetype>(frame.can_dlc, CAN_MAX_DLEN)));
    result.setExtendedFrameFormat(frame.can_id & CAN_EFF_FLAG);
    if (frame.can_id & CAN_RTR_FLAG)
        result.setFrameType(QCanBusFrame::RemoteRequestFrame);
    if (frame.can_id & CAN_ERR_FLAG) {
        result.setFrameType(QCanBusFrame::ErrorFrame);
        result.setError(QCanBusFrame::FrameErrors(frame.can_id & CAN_ERR_MASK));
    }
    result.setTimeStamp(timeStamp);
    return result;
}

can_frame fromQt(const QCanBusFrame &frame)
{
    can_frame result{};
    result.can_id = frame.frameId();
    if (frame.hasExtendedFrameFormat())
        result.can_id |= CAN_EFF_FLAG;
    if (frame.frameType() == QCanBusFrame::RemoteRequestFrame)
        result.can_id |= CAN_RTR_FLAG;
    if (frame.frameType() == QCanBusFrame::ErrorFrame)
        result.can_id = canid_t(frame.error().toInt()) | CAN_ERR_FLAG;
    const QByteArray payload = frame.payload();
    result.can_dlc = __u8(payload.size());
    std::memcpy(result.data, payload.constData(), std::size_t(payload.size()));
    return result;
}

/// The socket of the bus that the interface is on; empty if the environment names none.
QString socketOf(const QString &interfaceName)
{
    const QString ofCan0 = qEnvironmentVariable("VIRTUALBUS_SOCKET");
    if (ofCan0.isEmpty() || interfaceName == u"can0")
        return ofCan0;
    return QFileInfo(ofCan0).dir().filePath(interfaceName);
}

bool wouldBlock()
{
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

} // namespace

VirtualBusDevice::VirtualBusDevice(QString interfaceName, std::unique_ptr<FaultFile> faultFile)
    : m_interfaceName(std::move(interfaceName)),
      m_faultFile(std::move(faultFile))
{
    // What Qt's SocketCAN device starts with.
    QCanBusDevice::setConfigurationParameter(LoopbackKey, true);
    QCanBusDevice::setConfigurationParameter(ReceiveOwnKey, false);
    QCanBusDevice::setConfigurationParameter(
        ErrorFilterKey, QVariant::fromValue(QCanBusFrame::FrameErrors(QCanBusFrame::AnyError)));
    QCanBusDevice::setConfigurationParameter(CanFdKey, false);
    QCanBusDevice::setConfigurationParameter(BitRateKey, 500000);

    connect(m_faultFile.get(), &FaultFile::changed, this, &VirtualBusDevice::applyFaults);
}

VirtualBusDevice::~VirtualBusDevice()
{
    leave();
}

QCanBusDeviceInfo VirtualBusDevice::deviceInfoOf(const QString &interfaceName)
{
    // The serial number tells this bus from others, whose interfaces have the same names.
    return createDeviceInfo(u"socketcan"_s, interfaceName, socketOf(interfaceName), {}, {}, 0, true,
                            false);
}

QCanBusDeviceInfo VirtualBusDevice::deviceInfo() const
{
    return deviceInfoOf(m_interfaceName);
}

void VirtualBusDevice::setConfigurationParameter(ConfigurationKey key, const QVariant &value)
{
    if (key == RawFilterKey && !setFilters(value.value<QList<Filter>>()))
        return;
    if (key == ErrorFilterKey)
        m_errorMask = quint32(value.value<QCanBusFrame::FrameErrors>().toInt());
    if ((key == CanFdKey || key == ReceiveOwnKey) && value.toBool()) {
        setError(u"The virtual bus knows neither CAN FD nor own frames"_s, ConfigurationError);
        return;
    }
    QCanBusDevice::setConfigurationParameter(key, value);
}

bool VirtualBusDevice::setFilters(const QList<Filter> &filters)
{
    QList<IdFilter> result;
    for (const Filter &filter : filters) {
        IdFilter added{filter.frameId, filter.frameIdMask};
        switch (filter.type) {
        case QCanBusFrame::InvalidFrame:
            break;
        case QCanBusFrame::DataFrame:
            added.mask |= CAN_RTR_FLAG;
            break;
        case QCanBusFrame::RemoteRequestFrame:
            added.mask |= CAN_RTR_FLAG;
            added.id |= CAN_RTR_FLAG;
            break;
        default: // error frames are chosen by ErrorFilterKey
            setError(u"Cannot set filter for frame type: %1"_s.arg(filter.type),
                     ConfigurationError);
            return false;
        }
        const bool base = (filter.format & Filter::MatchBaseFormat) != 0;
        const bool extended = (filter.format & Filter::MatchExtendedFormat) != 0;
        if (base != extended)
            added.mask |= CAN_EFF_FLAG;
        if (extended && !base)
            added.id |= CAN_EFF_FLAG;
        result.append(added);
    }
    m_filters = result;
    return true;
}

bool VirtualBusDevice::passes(canid_t id) const
{
    if (id & CAN_ERR_FLAG)
        return id & m_errorMask;
    return m_filters.isEmpty()
        || std::any_of(m_filters.begin(), m_filters.end(), [id](const IdFilter &filter) {
               return (id & filter.mask) == (filter.id & filter.mask);
           });
}

bool VirtualBusDevice::open()
{
    if (m_faultFile->faults().connect) {
        setError(u"Bus fault: connect"_s, ConnectionError);
        return false;
    }
    if (!join())
        return false;
    setState(ConnectedState);
    const auto applyFirstFaults = [this] { applyFaults({}); };
    QMetaObject::invokeMethod(this, applyFirstFaults, Qt::QueuedConnection);
    return true;
}

bool VirtualBusDevice::join()
{
    const QByteArray path = QFile::encodeName(socketOf(m_interfaceName));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.isEmpty() || path.size() >= qsizetype(sizeof address.sun_path)) {
        setError(u"VIRTUALBUS_SOCKET does not name a socket"_s, ConnectionError);
        return false;
    }
    std::copy(path.begin(), path.end(), address.sun_path);

    m_socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (m_socket < 0
        || ::connect(m_socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) < 0) {
        setError(u"No virtual bus at %1: %2"_s.arg(QFile::decodeName(path), qt_error_string(errno)),
                 ConnectionError);
        leave();
        return false;
    }
    m_readable.reset(new QSocketNotifier(m_socket, QSocketNotifier::Read));
    m_writable.reset(new QSocketNotifier(m_socket, QSocketNotifier::Write));
    m_writable->setEnabled(false);
    connect(m_readable.get(), &QSocketNotifier::activated, this, &VirtualBusDevice::receive);
    connect(m_writable.get(), &QSocketNotifier::activated, this, &VirtualBusDevice::sendQueued);
    return true;
}

void VirtualBusDevice::close()
{
    leave();
    setState(UnconnectedState);
}

void VirtualBusDevice::leave()
{
    if (m_socket < 0)
        return;
    while (sendSome() > 0) {}
    for (Notifier *notifier : {&m_readable, &m_writable}) {
        if (*notifier)
            (*notifier)->setEnabled(false);
        notifier->reset();
    }
    ::close(std::exchange(m_socket, -1));
    m_inputBytes = m_outputFrames = m_outputSent = 0;
    m_received.clear();
    while (hasOutgoingFrames())
        dequeueOutgoingFrame();
}

/// The bus is gone, from one moment to the next.
void VirtualBusDevice::lose(const QString &why)
{
    leave();
    setError(why, ConnectionError);
    setState(UnconnectedState);
}

bool VirtualBusDevice::writeFrame(const QCanBusFrame &frame)
{
    if (state() != ConnectedState) {
        setError(u"The device is not connected"_s, OperationError);
        return false;
    }
    if (m_faultFile->faults().write) {
        setError(u"Bus fault: write"_s, WriteError);
        return false;
    }
    if (!frame.isValid() || frame.hasFlexibleDataRateFormat()) {
        setError(frame.isValid() ? u"The virtual bus carries no CAN FD frames"_s
                                 : u"Cannot write invalid QCanBusFrame"_s,
                 WriteError);
        return false;
    }
    // It leaves from the event loop, together with all others that are written in this turn.
    enqueueOutgoingFrame(frame);
    m_writable->setEnabled(true);
    return true;
}

/// Sends as much as the socket takes; returns the number of frames that have left completely.
qint64 VirtualBusDevice::sendSome()
{
    while (m_outputFrames < m_output.size() && hasOutgoingFrames())
        m_output[m_outputFrames++] = fromQt(dequeueOutgoingFrame());
    const std::size_t size = m_outputFrames * sizeof(can_frame);
    const auto count = ::send(m_socket,
                              reinterpret_cast<const char *>(m_output.data()) + m_outputSent,
                              size - m_outputSent, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count < 0)
        return wouldBlock() ? 0 : -1;
    const std::size_t framesBefore = m_outputSent / sizeof(can_frame);
    m_outputSent += std::size_t(count);
    const std::size_t framesSent = m_outputSent / sizeof(can_frame);
    if (m_outputSent == size)
        m_outputFrames = m_outputSent = 0;
    return qint64(framesSent - framesBefore);
}

void VirtualBusDevice::sendQueued()
{
    const qint64 sent = sendSome();
    if (sent < 0)
        return; // receive() learns of it too, after what there still is to read
    m_writable->setEnabled(m_outputFrames > 0 || hasOutgoingFrames());
    if (sent > 0)
        emit framesWritten(sent);
}

void VirtualBusDevice::receive()
{
    char *bytes = reinterpret_cast<char *>(m_input.data());
    const auto count = ::recv(m_socket, bytes + m_inputBytes, sizeof m_input - m_inputBytes, 0);
    if (count < 0 && wouldBlock())
        return;
    if (count <= 0) {
        lose(u"The virtual bus is gone"_s);
        return;
    }
    m_inputBytes += std::size_t(count);

    using namespace std::chrono;
    const auto now = QCanBusFrame::TimeStamp::fromMicroSeconds(
        duration_cast<microseconds>(system_clock::now().time_since_epoch()).count());
    const std::size_t frames = m_inputBytes / sizeof(can_frame);
    m_received.reserve(m_received.size() + qsizetype(frames));
    for (std::size_t i = 0; i < frames; ++i) {
        if (passes(m_input[i].can_id))
            m_received.append(toQt(m_input[i], now));
    }
    m_inputBytes %= sizeof(can_frame);
    std::memmove(bytes, bytes + frames * sizeof(can_frame), m_inputBytes);
    deliver();
}

void VirtualBusDevice::deliver()
{
    if (!m_received.isEmpty() && m_received.size() >= m_faultFile->faults().batch)
        enqueueReceivedFrames(std::exchange(m_received, {}));
}

void VirtualBusDevice::applyFaults(const Faults &before)
{
    if (state() != ConnectedState)
        return;
    const Faults faults = m_faultFile->faults();
    deliver();
    if (faults.error && !before.error)
        setError(u"Bus fault: error"_s, ReadError);
    if (faults.disconnect && !before.disconnect) {
        leave();
        setState(UnconnectedState);
    }
}

QString VirtualBusDevice::interpretErrorFrame(const QCanBusFrame &errorFrame)
{
    if (errorFrame.frameType() != QCanBusFrame::ErrorFrame)
        return {};

    static constexpr std::pair<QCanBusFrame::FrameError, const char *> texts[] = {
        {QCanBusFrame::TransmissionTimeoutError, "TX timeout"},
        {QCanBusFrame::LostArbitrationError, "lost arbitration"},
        {QCanBusFrame::ControllerError, "controller problem"},
        {QCanBusFrame::ProtocolViolationError, "protocol violation"},
        {QCanBusFrame::TransceiverError, "transceiver problem"},
        {QCanBusFrame::MissingAcknowledgmentError, "no acknowledgement"},
        {QCanBusFrame::BusOffError, "bus off"},
        {QCanBusFrame::BusError, "bus error"},
        {QCanBusFrame::ControllerRestartError, "controller restarted"},
        {QCanBusFrame::UnknownError, "unknown error"},
    };
    QStringList result;
    for (const auto &[error, text] : texts) {
        if (errorFrame.error().testFlag(error))
            result.append(QLatin1StringView(text));
    }
    return result.join(u", "_s);
}
