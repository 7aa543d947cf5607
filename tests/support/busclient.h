#pragma once

#include <QByteArray>
#include <QCanBusFrame>
#include <QList>

#include <linux/can.h>

/// A participant of the virtual bus that speaks raw frames. Frames are written as candump and
/// cansend write them: "0F584000#5AA5" is a frame in extended format (eight digits) with two
/// bytes of payload, "123#" one in base format (three digits) without, "0F584000#R" a remote
/// request.
class BusClient
{
public:
    /// Joins the bus whose socket is \a path, or else the one that VIRTUALBUS_SOCKET names.
    explicit BusClient(const QByteArray &path = {});
    BusClient(const BusClient &) = delete;
    BusClient &operator=(const BusClient &) = delete;
    ~BusClient();

    bool isConnected() const { return m_socket >= 0; }
    void leave();

    /// Sends the frames, separated by blanks, in one write; waits for room.
    bool send(const QByteArray &frames);
    bool sendBytes(const QByteArray &bytes);

    /// The next frame, or an empty string if none comes in time or the bus is gone.
    QByteArray receive(int timeoutMs = 5000);
    /// Sends frames and returns the frame that comes in answer.
    QByteArray request(const QByteArray &frames) { return send(frames) ? receive() : QByteArray(); }
    QByteArray request(const QList<QCanBusFrame> &frames);
    /// True if no frame comes in a time that is long enough for every frame on its way.
    bool isSilent() { return receive(200).isEmpty(); }

    static can_frame parse(const QByteArray &text);
    static QByteArray format(const can_frame &frame);

private:
    int m_socket = -1;
    QByteArray m_input;
    qsizetype m_taken = 0; ///< bytes of m_input that were returned as frames
};
