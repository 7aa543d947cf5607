#pragma once

#include "decoder.h"

#include <QCanBusFrame>
#include <QJsonObject>
#include <QMap>
#include <QString>
#include <QStringList>

#include <optional>

// What passes on a bus, seen from outside: nothing here sends.
namespace Shipwright {

/// Chooses frames. For each key that has been added, one of its values has to fit.
class FrameFilter
{
public:
    /// \a text is KEY=VALUE, with the keys message (a part of its name, in any case), node (of the
    /// sender or of the addressee) and result (success, failure or an answer's code). Throws a
    /// Failure when it is not.
    void add(const QString &text);
    bool passes(const QCanBusFrame &frame, const Decoded &decoded) const;

private:
    QMap<QString, QStringList> m_wanted;
};

/// The traffic of one bus in numbers.
class TrafficSummary
{
public:
    void add(const QCanBusFrame &frame, const Decoded &decoded);

    QString text() const;
    QJsonObject object() const;

private:
    struct Transfer
    {
        qint64 start; ///< microseconds
        qint64 size;  ///< bytes
    };

    double seconds() const { return double(m_lastTime - m_firstTime) / 1e6; }
    double bytesPerSecond() const;

    qint64 m_frames = 0;
    qint64 m_firstTime = 0; ///< microseconds
    qint64 m_lastTime = 0;
    qint64 m_sessions = 0;
    qint64 m_files = 0;
    qint64 m_bytes = 0; ///< of these files
    qint64 m_transferTime = 0;
    qint64 m_repeated = 0;
    qint64 m_refusals = 0;
    std::optional<Transfer> m_announced; ///< not answered yet
    std::optional<Transfer> m_transfer;
    qint64 m_nextRecord = 0;
};

} // namespace Shipwright
