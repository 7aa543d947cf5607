#include "busclient.h"

#include <QByteArrayList>
#include <QElapsedTimer>

#include <algorithm>
#include <cstring>
#include <utility>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

BusClient::BusClient(const QByteArray &path)
{
    const QByteArray name = path.isEmpty() ? qgetenv("VIRTUALBUS_SOCKET") : path;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (name.isEmpty() || name.size() >= qsizetype(sizeof address.sun_path))
        return;
    std::copy(name.begin(), name.end(), address.sun_path);
    m_socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::connect(m_socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) < 0)
        leave();
}

BusClient::~BusClient()
{
    leave();
}

void BusClient::leave()
{
    if (m_socket >= 0)
        ::close(std::exchange(m_socket, -1));
}

bool BusClient::send(const QByteArray &frames)
{
    QByteArray bytes;
    const QList<QByteArray> texts = frames.split(' ');
    for (const QByteArray &text : texts) {
        const can_frame frame = parse(text);
        bytes.append(reinterpret_cast<const char *>(&frame), sizeof frame);
    }
    return sendBytes(bytes);
}

bool BusClient::sendBytes(const QByteArray &bytes)
{
    return ::send(m_socket, bytes.constData(), std::size_t(bytes.size()), MSG_NOSIGNAL)
        == bytes.size();
}

QByteArray BusClient::receive(int timeoutMs)
{
    QElapsedTimer timer;
    timer.start();
    constexpr qsizetype frameSize = sizeof(can_frame);
    if (m_taken > 0 && m_input.size() - m_taken < frameSize)
        m_input.remove(0, std::exchange(m_taken, 0));
    while (m_input.size() < frameSize) {
        pollfd readable{m_socket, POLLIN, 0};
        const int left = std::max(0, timeoutMs - int(timer.elapsed()));
        if (::poll(&readable, 1, left) <= 0)
            return {};
        char buffer[65536];
        const auto count = ::recv(m_socket, buffer, sizeof buffer, 0);
        if (count <= 0)
            return {};
        m_input.append(buffer, count);
    }
    can_frame frame;
    std::memcpy(&frame, m_input.constData() + m_taken, sizeof frame);
    m_taken += frameSize;
    return format(frame);
}

QByteArray BusClient::request(const QList<QCanBusFrame> &frames)
{
    QByteArrayList texts;
    for (const QCanBusFrame &frame : frames) {
        texts.append(QByteArray::number(frame.frameId(), 16).rightJustified(8, '0') + '#'
                     + frame.payload().toHex());
    }
    return request(texts.join(' '));
}

can_frame BusClient::parse(const QByteArray &text)
{
    const qsizetype separator = text.indexOf('#');
    const QByteArray payload = text.mid(separator + 1);
    can_frame frame{};
    frame.can_id = text.left(separator).toUInt(nullptr, 16);
    if (separator == 8)
        frame.can_id |= CAN_EFF_FLAG;
    if (payload == "R")
        frame.can_id |= CAN_RTR_FLAG;
    const QByteArray bytes = payload == "R" ? QByteArray() : QByteArray::fromHex(payload);
    Q_ASSERT(bytes.size() <= CAN_MAX_DLEN);
    frame.can_dlc = __u8(bytes.size());
    std::memcpy(frame.data, bytes.constData(), std::size_t(bytes.size()));
    return frame;
}

QByteArray BusClient::format(const can_frame &frame)
{
    const bool extended = frame.can_id & CAN_EFF_FLAG;
    const canid_t id = frame.can_id & (extended ? CAN_EFF_MASK : CAN_SFF_MASK);
    const QByteArray payload = frame.can_id & CAN_RTR_FLAG
        ? QByteArray("R")
        : QByteArray(reinterpret_cast<const char *>(frame.data), frame.can_dlc).toHex().toUpper();
    return QByteArray::number(id, 16).rightJustified(extended ? 8 : 3, '0').toUpper() + '#'
        + payload;
}
