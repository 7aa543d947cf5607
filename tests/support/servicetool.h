#pragma once

#include "busclient.h"
#include "toolframes.h"

/// The service tool as a participant of the virtual bus.
class ServiceTool : public BusClient
{
public:
    using BusClient::BusClient;

    /// Sends frames and returns the next frame, the answer.
    QByteArray request(const QByteArray &frames) { return send(frames) ? receive() : QByteArray(); }
    QByteArray request(const ToolFrames::List &frames);
};
