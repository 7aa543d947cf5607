#pragma once

#include <QCanBusFrame>
#include <QString>
#include <QStringList>

/// All that reaches the outside, as lines of text in the order in which it happens, so that a
/// test compares it with a literal transcript:
///
///     debug |text|                              a log message of Qt's default category
///     warning(name) |text|                      one of another category
///     sent 0f584000 ext [5a a5]                 a frame handed to the CAN device
///     display "one" on "two" off 0.5 on         the six values of the display signal
///     sync                                      a call of sync(), which is replaced by this line
namespace EventLog {

/// Begins with an empty log, and takes Qt's messages until stop().
void start();
void stop();

void add(const QString &line);
/// The lines since start() or the last call.
QStringList take();

/// The lines of \a text without their indentation; empty ones are left out.
QStringList transcript(const char *text);

/// Identifier, format, further flags and payload: "0f584000 ext [5a a5]".
QString describe(const QCanBusFrame &frame);

/// To be connected to the display signal.
void addDisplay(const QString &text1, bool visible1, const QString &text2, bool visible2,
                double progress, bool progressVisible);

} // namespace EventLog
