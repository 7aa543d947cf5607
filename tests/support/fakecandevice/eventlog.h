#pragma once

#include <QCanBusFrame>
#include <QString>
#include <QStringList>

#include <functional>

/// All effects outside of the class, as lines of text in their order, to compare with a literal
/// transcript:
///
///     debug |text|                              a log message of Qt's default category
///     warning(name) |text|                      one of another category
///     sent 0F584000#5AA5                        a frame handed to the CAN device
///     display "one" on "two" off 0.5 on         the six values of the display signal
///     sync                                      a call of sync(), which is replaced by this line
namespace EventLog {

/// Starts an empty log, and collects Qt's messages until stop().
void start();
void stop();

/// Called with each line before it is added, until stop().
inline std::function<void(const QString &line)> watcher;

void add(const QString &line);
/// The lines since start() or the last call.
QStringList take();

/// The lines of \a text without their indentation; empty ones are left out.
QStringList transcript(const QString &text);

/// A frame as candump and cansend write it: eight digits of identifier for the extended format,
/// three for the base format, and the payload. 0F1A02C0#E is an error frame of that identifier.
QCanBusFrame frame(const QString &text);
/// The same text of \a frame, followed by properties that an ordinary data frame does not have.
QString text(const QCanBusFrame &frame);

/// Connect it to the display signal.
void addDisplay(const QString &text1, bool visible1, const QString &text2, bool visible2,
                double progress, bool progressVisible);

} // namespace EventLog
