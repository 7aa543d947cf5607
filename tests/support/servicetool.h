#pragma once

#include "benchclient.h"
#include "toolframes.h"

/// The service tool as a participant of the bench bus.
class ServiceTool : public BenchClient
{
public:
    using BenchClient::BenchClient;

    /// Sends frames and returns the frame that comes in answer.
    QByteArray request(const QByteArray &frames) { return send(frames) ? receive() : QByteArray(); }
    QByteArray request(const ToolFrames::List &frames);
};
