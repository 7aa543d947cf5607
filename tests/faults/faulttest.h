#pragma once

#include "canbusmanager.h"
#include "fakecandevice.h"
#include "toolframes.h"

#include <QStringList>

#include <functional>
#include <memory>

/// A receiver that is connected to its device; collects its log and answers.
class StartedReceiver
{
public:
    StartedReceiver();

    /// Delivers \a frames one by one. Returns the answers, as "IDENTIFIER#PAYLOAD", and the log
    /// messages except debug messages, as "level |text|", in their order.
    QStringList receive(const ToolFrames::List &frames);

    CanBusManager manager;
    std::unique_ptr<FakeCanDevice> device;
};

/// The answers among what StartedReceiver::receive() returned.
QStringList answersIn(const QStringList &events);
/// Whether a message of the level "warning" or "critical" is among \a events.
bool complainsIn(const QStringList &events);
/// \a events on lines of their own, for a failure message.
QString listed(const QStringList &events);
/// The answer to a Transfer Complete that found \a content intact.
QString acceptanceOf(const QByteArray &content);

/// Runs \a body in its own process and process group. Returns whether SIGKILL ended it.
bool isKilled(const std::function<void()> &body);
