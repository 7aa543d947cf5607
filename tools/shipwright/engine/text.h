#pragma once

#include <QCanBusFrame>
#include <QString>

// Parts of messages.
namespace Shipwright {

/// A frame as logs and messages write it: 0F1A02C0#A55A.
QString frameText(quint32 frameId, const QByteArray &payload);
inline QString frameText(const QCanBusFrame &frame)
{
    return frameText(frame.frameId(), frame.payload());
}

/// An identifier as logs and messages write it: 0F1A02C0, or 7FF in the base format.
QString idText(const QCanBusFrame &frame);

/// cbf43926
QString hexDigits(quint32 number);

/// 0xcbf43926
QString hexNumber(quint32 number);

/// "512 B", "157.1 kB"
QString sizeText(double bytes);

/// "1 record", "2 records"; \a noun is singular.
QString countText(quint64 number, const QString &noun);

/// \a text with its control characters escaped: it stays on one line, and a terminal shows escape
/// sequences instead of obeying them.
QString printable(const QString &text);

} // namespace Shipwright
