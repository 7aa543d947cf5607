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
    /// \a interfaceName is empty where a command has none, or several.
    Console(bool json, const QString &command, QString interfaceName);

    /// Reports \a event: \a text to people, \a fields to programs. An event of another interface
    /// than the command's has it among its \a fields.
    void report(const QString &event, const QString &text, const QJsonObject &fields = {});
    void warn(const QString &text);
    void failure(const Failure &failure, const QString &receiverState);
    /// Throws a Failure if a report could not be written. The reports do not throw: the command
    /// finishes its work with the receiver first.
    void checkOutput() const;
    /// Draws \a lines below all that was reported, in the place of those drawn before; false where
    /// that cannot be seen: standard output is no terminal.
    bool showLines(const QStringList &lines);

    void startTransfer(const QString &fileName, quint32 fileType, std::optional<quint32> bitRate);
    void progress(const TransferProgress &progress);
    void finishTransfer(const TransferResult &result);

private:
    void print(const QString &text);
    void endBar();
    void drawBar(int percent, QStringList figures, int columns);
    QStringList figures(const TransferProgress &progress) const;
    double bytesPerSecond(quint64 bytes) const;
    std::optional<double> busShare(double bytesPerSecond) const;
    QString busShareText(double bytesPerSecond) const;

    bool m_json;
    QString m_interface;
    int m_outputError = 0; ///< of writing standard output; 0: none
    bool m_barDrawn = false;
    qsizetype m_linesDrawn = 0;
    QString m_fileName;
    quint32 m_fileType = 0;
    std::optional<quint32> m_bitRate;
    int m_lastStep = -1;
    quint32 m_repeatsShown = 0;
    QElapsedTimer m_sinceStart;
    QElapsedTimer m_sinceDrawn;
};

} // namespace Shipwright
