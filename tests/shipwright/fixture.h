#pragma once

#include "fakebus.h"

#include "failure.h"
#include "link.h"
#include "peer.h"

/// A peer on an open link to a receiver in memory.
struct Fixture
{
    explicit Fixture(const Shipwright::PeerSettings &settings = {})
        : bus(clock),
          link(bus, clock),
          peer(link, settings)
    {
        link.endOnForeignFrames();
        link.open();
    }

    /// Sends \a content and returns the last progress reported.
    Shipwright::TransferProgress send(quint32 type, const QByteArray &content)
    {
        Shipwright::TransferProgress last;
        peer.sendFile(type, content, [this, &last](const Shipwright::TransferProgress &p) {
            progress.append(p);
            last = p;
        });
        return last;
    }

    /// Answers frames with the identifier \a id with \a answers alone; all frames if \a id is 0.
    void answer(quint32 id, const QList<QCanBusFrame> &answers)
    {
        bus.tamper = [=](const QCanBusFrame &sent, const QList<QCanBusFrame> &given) {
            return id == 0 || sent.frameId() == id ? answers : given;
        };
    }
    /// Calls \a action when a frame with the identifier \a id has gone out; any if it is 0.
    void whenSent(quint32 id, const std::function<void()> &action)
    {
        bus.onWritten = [=](const QCanBusFrame &sent) {
            if (id == 0 || sent.frameId() == id)
                action();
        };
    }
    void inject(const QStringList &faults)
    {
        Shipwright::FaultPlan plan;
        for (const QString &fault : faults)
            plan.add(fault);
        link.setFaults(plan);
    }

    FakeClock clock;
    FakeBus bus;
    Shipwright::Link link;
    Shipwright::Peer peer;
    QList<Shipwright::TransferProgress> progress;
};

/// What \a action throws.
template<typename Action>
Shipwright::Failure failureOf(Action &&action)
{
    try {
        action();
    } catch (const Shipwright::Failure &failure) {
        return failure;
    }
    return {Shipwright::Exit::Success, QStringLiteral("nothing failed")};
}

/// Bytes that do not repeat with the size of a frame or a record.
inline QByteArray pattern(qsizetype size)
{
    QByteArray bytes(size, '\0');
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = char(i % 251);
    return bytes;
}
