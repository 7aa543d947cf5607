#pragma once

#include <QCanBusFrame>
#include <QString>

// Texts that messages of several sources share.
namespace Shipwright {

/// A frame as logs and messages write it: 0F1A02C0#A55A.
QString frameText(quint32 frameId, const QByteArray &payload);
inline QString frameText(const QCanBusFrame &frame)
{
    return frameText(frame.frameId(), frame.payload());
}

/// 0xcbf43926
QString hexNumber(quint32 number);

/// "1 record", "2 records"; \a noun is the name of one.
QString countText(quint64 number, const QString &noun);

/// \a text with everything escaped that a terminal would obey instead of showing it: it stays on
/// its line and nobody's escape sequence takes effect.
QString printable(const QString &text);

} // namespace Shipwright
