#pragma once

#include <QCanBusDevice>
#include <QCanBusFrame>
#include <QList>

#include <linux/can.h>

#include <span>

/// A CAN device in memory. What it is given it turns into Qt's frames as Qt's "socketcan" plugin
/// does, one by one from the kernel's structure, and signals once; what is written is dropped.
class CanDevice : public QCanBusDevice
{
    Q_OBJECT

public:
    void receive(std::span<const can_frame> frames);

    bool writeFrame(const QCanBusFrame &) override { return true; }
    QString interpretErrorFrame(const QCanBusFrame &) override { return {}; }

protected:
    bool open() override;
    void close() override { setState(UnconnectedState); }
};
