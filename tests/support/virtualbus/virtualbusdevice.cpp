#include "virtualbusdevice.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QVariant>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

#include <linux/can.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace std::chrono;

namespace {

QCanBusFrame toQt(const can_frame &frame, QCanBusFrame::TimeStamp timeStamp)
{
    QCanBusFrame result(frame.can_id & CAN_EFF_MASK,
                        QByteArray(reinterpret_cast<const char *>(frame.data),
                                   std::min<qsizetype>(frame.can_dlc, CAN_MAX_DLEN)));
    result.setExtendedFrameFormat(frame.can_id & CAN_EFF_FLAG);
    if (frame.can_id & CAN_RTR_FLAG)
        result.setFrameType(QCanBusFrame::RemoteRequestFrame);
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
    const QByteArray payload = frame.payload();
    result.can_dlc = __u8(payload.size());
    std::memcpy(result.data, payload.constData(), std::size_t(payload.size()));
    return result;
}

/// The socket of the bus that the interface is on; empty if the environment names none.
QString socketOf(const QString &interfaceName)
{
    QString ofCan0 = qEnvironmentVariable("VIRTUALBUS_SOCKET");
    if (ofCan0.isEmpty() || interfaceName == u"can0")
        return ofCan0;
    return QFileInfo(ofCan0).dir().filePath(interfaceName);
}

/// Whether one of the filters, if there are any, lets the frame pass.
bool passes(const QCanBusFrame &frame, const QList<QCanBusDevice::Filter> &filters)
{
    using Filter = QCanBusDevice::Filter;
    const auto format = frame.hasExtendedFrameFormat() ? Filter::MatchExtendedFormat
                                                       : Filter::MatchBaseFormat;
    return filters.isEmpty()
        || std::any_of(filters.begin(), filters.end(), [&](const Filter &filter) {
               return (filter.type == QCanBusFrame::InvalidFrame
                       || filter.type == frame.frameType())
                   && (filter.format & format) != 0
                   && ((frame.frameId() ^ filter.frameId) & filter.frameIdMask) == 0;
           });
}

} // namespace

VirtualBusDevice::VirtualBusDevice(QString interfaceName, std::unique_ptr<FaultFile> faultFile)
    : m_interfaceName(std::move(interfaceName)),
      m_faultFile(std::move(faultFile))
{
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

bool VirtualBusDevice::open()
{
    if (m_faultFile->has("connect")) {
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
    m_input.clear();
    m_output.clear();
    m_received.clear();
    while (hasOutgoingFrames())
        dequeueOutgoingFrame();
}

bool VirtualBusDevice::writeFrame(const QCanBusFrame &frame)
{
    if (state() != ConnectedState) {
        setError(u"The device is not connected"_s, OperationError);
        return false;
    }
    if (m_faultFile->has("write")) {
        setError(u"Bus fault: write"_s, WriteError);
        return false;
    }
    if (!frame.isValid() || frame.payload().size() > CAN_MAX_DLEN) {
        setError(u"The virtual bus carries no such frame"_s, WriteError);
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
    constexpr qsizetype frameSize = sizeof(can_frame);
    while (m_output.size() < 1024 * frameSize && hasOutgoingFrames()) {
        const can_frame frame = fromQt(dequeueOutgoingFrame());
        m_output.append(reinterpret_cast<const char *>(&frame), frameSize);
    }
    const auto count = ::send(m_socket, m_output.constData(), std::size_t(m_output.size()),
                              MSG_NOSIGNAL);
    if (count <= 0)
        return 0; // of a loss receive() learns too, after what there still is to read
    const auto waiting = [this] { return (m_output.size() + frameSize - 1) / frameSize; };
    const qsizetype before = waiting();
    m_output.remove(0, count);
    return before - waiting();
}

void VirtualBusDevice::sendQueued()
{
    const qint64 sent = sendSome();
    m_writable->setEnabled(!m_output.isEmpty() || hasOutgoingFrames());
    if (sent > 0)
        emit framesWritten(sent);
}

void VirtualBusDevice::receive()
{
    std::array<char, 4096 * sizeof(can_frame)> buffer;
    const auto count = ::recv(m_socket, buffer.data(), buffer.size(), 0);
    if (count < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    if (count <= 0) {
        leave();
        setError(u"The virtual bus is gone"_s, ConnectionError);
        setState(UnconnectedState);
        return;
    }
    m_input.append(buffer.data(), count);

    const auto now = QCanBusFrame::TimeStamp::fromMicroSeconds(
        duration_cast<microseconds>(system_clock::now().time_since_epoch()).count());
    const auto filters = configurationParameter(RawFilterKey).value<QList<Filter>>();
    can_frame frame;
    qsizetype taken = 0;
    for (; m_input.size() - taken >= qsizetype(sizeof frame); taken += sizeof frame) {
        std::memcpy(&frame, m_input.constData() + taken, sizeof frame);
        const QCanBusFrame received = toQt(frame, now);
        if (passes(received, filters))
            m_received.append(received);
    }
    m_input.remove(0, taken);
    deliver();
}

void VirtualBusDevice::deliver()
{
    if (!m_received.isEmpty() && m_received.size() >= m_faultFile->batch())
        enqueueReceivedFrames(std::exchange(m_received, {}));
}

void VirtualBusDevice::applyFaults(const QByteArrayList &before)
{
    if (state() != ConnectedState)
        return;
    const auto isNew = [&](const char *fault) {
        return m_faultFile->has(fault) && !before.contains(fault);
    };
    deliver();
    if (isNew("error"))
        setError(u"Bus fault: error"_s, ReadError);
    if (isNew("disconnect")) {
        leave();
        setState(UnconnectedState);
    }
}
