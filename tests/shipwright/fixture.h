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
