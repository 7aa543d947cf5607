#pragma once

#include "failure.h"
#include "peer.h"

#include <QElapsedTimer>
#include <QJsonObject>

#include <optional>

namespace Shipwright {

/// What the user sees: lines of text, or with --json one object per event.
class Console
{
public:
    /// \a columns is the width of the terminal, 0 when standard output is none.
    Console(bool json, int columns);

    static int terminalColumns();

    bool isJson() const { return m_json; }
    /// Reports \a event: \a text to people, \a fields to programs.
    void report(const QString &event, const QString &text, const QJsonObject &fields = {});
    void failure(const Failure &failure, const QString &receiverState);

    void startTransfer(const QString &fileName, quint32 fileType, std::optional<quint32> bitRate);
    void progress(const TransferProgress &progress);
    void finishTransfer(const TransferResult &result);

private:
    void endBar();
    void drawBar(int percent, const QString &figures);
    QString figures(const TransferProgress &progress) const;
    double bytesPerSecond(quint64 bytes) const;
    std::optional<double> busShare(double bytesPerSecond) const;

    bool m_json;
    int m_columns;
    bool m_barDrawn = false;
    QString m_fileName;
    quint32 m_fileType = 0;
    std::optional<quint32> m_bitRate;
    int m_lastStep = -1;
    quint32 m_repeatsShown = 0;
    QElapsedTimer m_sinceStart;
    QElapsedTimer m_sinceDrawn;
};

} // namespace Shipwright
