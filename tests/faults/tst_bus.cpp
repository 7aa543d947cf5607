// A bus, a device and a service tool that misbehave.
#include "faulttest.h"
#include "servicetree.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QByteArray liveConfig = QByteArrayLiteral("application/main/systemConfig.json");
const QByteArray firstConfig = QByteArray(1200, 'a') + "first";
const QByteArray nextConfig = QByteArray(900, 'b') + "next";

/// The answers to a complete download of nextConfig.
QStringList answersToNextConfig()
{
    return {
        u"0F584000#5AA5"_s,
        u"1B580000#0A3FE803E80360EA"_s,
        u"1B581000#0000000000000000"_s,
        u"1B583000#00"_s,
        u"1B583000#00"_s,
        acceptanceOf(nextConfig),
        u"0F584000#"_s,
    };
}

QCanBusFrame extended(quint32 id, const QByteArray &payload)
{
    QCanBusFrame frame(id, payload);
    frame.setExtendedFrameFormat(true);
    return frame;
}

QCanBusFrame errorFrame()
{
    QCanBusFrame frame(QCanBusFrame::ErrorFrame);
    frame.setError(QCanBusFrame::AnyError);
    frame.setPayload(QByteArray(8, '\x04'));
    return frame;
}

} // namespace

class tst_Bus : public QObject
{
    Q_OBJECT

private:
    /// Plays a download, which must succeed. \a when is for the failure message.
    static void verifyDownload(StartedReceiver &receiver, const QString &when)
    {
        if (QTest::currentTestFailed())
            return;
        const QStringList events = receiver.receive(ToolFrames::configurationDownload(nextConfig));
        QVERIFY2(answersIn(events) == answersToNextConfig(), qPrintable(when + listed(events)));
        QCOMPARE(ServiceTree::read(liveConfig), nextConfig);
    }

private slots:
    void initTestCase()
    {
        if (const QString reason = ServiceTree::unsafe(); !reason.isEmpty())
            qFatal("%s", qUtf8Printable(reason));
    }

    void init() { ServiceTree::reset(); }

    void errorFramesBetweenAnyTwoFrames()
    {
        StartedReceiver receiver;
        ToolFrames::List frames;
        for (const QCanBusFrame &frame : ToolFrames::configurationDownload(nextConfig))
            frames << errorFrame() << frame;
        const QStringList events = receiver.receive(frames);
        QCOMPARE(answersIn(events), answersToNextConfig());
        QCOMPARE(
            events.count(u"warning |onFramesReceived: Unhanlded Protocol Type CAN Message:  0|"_s),
            frames.size() / 2);
        QCOMPARE(ServiceTree::read(liveConfig), nextConfig);
    }

    void deviceErrorsBetweenAnyTwoFrames()
    {
        StartedReceiver receiver;
        QStringList events;
        const ToolFrames::List frames = ToolFrames::configurationDownload(nextConfig);
        for (const QCanBusFrame &frame : frames) {
            receiver.device->reportError(u"Bus off"_s, QCanBusDevice::ReadError);
            events += receiver.receive({frame});
        }
        QCOMPARE(answersIn(events), answersToNextConfig());
        QCOMPARE(events.count(u"critical |canFrameError: CAN Error QCanBusDevice::ReadError|"_s),
                 frames.size());
        QCOMPARE(ServiceTree::read(liveConfig), nextConfig);
    }

    void deviceThatRefusesToWrite()
    {
        StartedReceiver receiver;
        FakeCanDevice::behaviour.writeError = u"No buffer space available"_s;
        const QStringList events = receiver.receive(ToolFrames::configurationDownload(firstConfig));
        FakeCanDevice::behaviour.writeError.clear();
        QCOMPARE(answersIn(events), QStringList());
        QCOMPARE(
            events.count(
                u"warning |writeFrame: Failed to write frame: \"No buffer space available\"|"_s),
            8);
        // The receiver did what the commands asked for.
        QCOMPARE(ServiceTree::read(liveConfig), firstConfig);
        verifyDownload(receiver, u"after the fault"_s);
    }

    void deviceThatRefusesEachAnswerInTurn()
    {
        for (qsizetype refused = 0; refused < answersToNextConfig().size(); ++refused) {
            StartedReceiver receiver;
            QStringList expected = answersToNextConfig();
            expected.removeAt(refused);
            QStringList events;
            qsizetype answered = 0;
            for (const QCanBusFrame &frame : ToolFrames::configurationDownload(nextConfig)) {
                FakeCanDevice::behaviour.writeError = answered == refused ? u"busy"_s : QString();
                const QStringList more = receiver.receive({frame});
                answered += answersIn(more).size()
                    + more.count(u"warning |writeFrame: Failed to write frame: \"busy\"|"_s);
                events += more;
            }
            FakeCanDevice::behaviour.writeError.clear();
            QCOMPARE(answersIn(events), expected);
            QCOMPARE(ServiceTree::read(liveConfig), nextConfig);
        }
    }

    /// The receiver does not reconnect. The deployment has to restart it.
    void deviceThatGoesDownAtEachFrameStaysDown()
    {
        const ToolFrames::List frames = ToolFrames::configurationDownload(firstConfig);
        for (qsizetype cut = 0; cut < frames.size(); ++cut) {
            {
                StartedReceiver receiver;
                receiver.receive(frames.first(cut));
                receiver.device->reportState(QCanBusDevice::UnconnectedState);
                QStringList expected{
                    u"info |canStateChanged: New CAN State QCanBusDevice::UnconnectedState|"_s};
                for (qsizetype frame = cut; frame < frames.size(); ++frame) {
                    expected += {
                        u"warning(qt.canbus) |Cannot read frame as device is not connected.|"_s,
                        u"critical |canFrameError: CAN Error QCanBusDevice::OperationError|"_s};
                }
                QCOMPARE(receiver.receive(frames.sliced(cut)), expected);
            }
            StartedReceiver restarted;
            verifyDownload(restarted, u"after %1 frames"_s.arg(cut));
        }
    }

    void serviceToolThatVanishesAtEachFrameAndComesBack()
    {
        StartedReceiver receiver;
        for (const ToolFrames::List &frames :
             {ToolFrames::configurationDownload(firstConfig), ToolFrames::transfer(1, firstConfig),
              ToolFrames::transfer(2, firstConfig), ToolFrames::transfer(3, firstConfig),
              ToolFrames::transfer(200, firstConfig)}) {
            for (qsizetype cut = 0; cut <= frames.size(); ++cut) {
                receiver.receive(frames.first(cut));
                verifyDownload(receiver, u"after %1 of %2 frames"_s.arg(cut).arg(frames.size()));
            }
        }
    }

    /// A lost frame of a transfer leads to a CRC mismatch. The receiver never accepts a file that
    /// differs from the one sent.
    void serviceToolThatLosesEachFrameInTurn()
    {
        StartedReceiver receiver;
        const ToolFrames::List frames = ToolFrames::configurationDownload(firstConfig);
        const qsizetype sessionFrames[] = {0, frames.size() - 1};
        for (qsizetype lost = 0; lost < frames.size(); ++lost) {
            ServiceTree::reset();
            ToolFrames::List rest = frames;
            rest.removeAt(lost);
            const QStringList events = receiver.receive(rest);
            const bool accepted = answersIn(events).contains(acceptanceOf(firstConfig));
            const QByteArray live = ServiceTree::read(liveConfig);
            QVERIFY2(accepted ? live == firstConfig : live == "(no file)",
                     qPrintable(listed(events)));
            if (std::count(std::begin(sessionFrames), std::end(sessionFrames), lost) > 0)
                QVERIFY(accepted);
            verifyDownload(receiver, u"without frame %1"_s.arg(lost));
        }
    }

    /// A repeated data frame is dropped. A repeated Record End appends its record again. The file's
    /// CRC-32 detects that, except after the last record: the CRC-32 ends at the announced size.
    void serviceToolThatSendsEachFrameTwice()
    {
        StartedReceiver receiver;
        const ToolFrames::List frames = ToolFrames::configurationDownload(firstConfig);
        for (qsizetype repeated = 0; repeated < frames.size(); ++repeated) {
            ServiceTree::reset();
            ToolFrames::List more = frames;
            more.insert(repeated, frames.at(repeated));
            const QStringList events = receiver.receive(more);
            const bool accepted = answersIn(events).contains(acceptanceOf(firstConfig));
            const QByteArray live = ServiceTree::read(liveConfig);
            const bool isLastRecordEnd = repeated == frames.size() - 3;
            const QByteArray taken = isLastRecordEnd ? firstConfig + firstConfig.sliced(1024)
                                                     : firstConfig;
            QVERIFY2(accepted ? live == taken : live == "(no file)", qPrintable(listed(events)));
            verifyDownload(receiver, u"with frame %1 twice"_s.arg(repeated));
        }
    }

    /// 7,634 frames a second fill a bus of 1 Mbit/s; this is ten times that, for a second.
    void floodForOthers()
    {
        constexpr int framesBetween = 720;
        StartedReceiver receiver;
        const ToolFrames::List session = ToolFrames::configurationDownload(nextConfig);
        // Other protocols, other nodes, other interfaces, unknown messages.
        const ToolFrames::List foreign{
            extended(0x00000123, "\x01\x02"),         extended(0x1CEBFF17, QByteArray(8, 'f')),
            extended(0x14180000, QByteArray(8, 'p')), extended(0x0F194000, {}),
            extended(0x1B3A0000, QByteArray(8, 't')), extended(0x1AFA2000, QByteArray(5, 'r')),
            extended(0x0F1A0280, "\xA5\x5A"),         extended(0x1B1AE000, QByteArray(8, 'u')),
            extended(0x1B19F000, QByteArray(8, 'd')), errorFrame()};

        QStringList answers;
        qsizetype flooded = 0;
        for (const QCanBusFrame &frame : session) {
            ToolFrames::List burst;
            for (int i = 0; i < framesBetween; ++i)
                burst.append(foreign.at(flooded++ % foreign.size()));
            // The burst arrives in one go, as after a busy time of the receiver.
            receiver.device->queue(burst);
            answers += answersIn(receiver.receive({frame}));
        }
        QCOMPARE(answers, answersToNextConfig());
        QCOMPARE(ServiceTree::read(liveConfig), nextConfig);
        QCOMPARE(receiver.device->framesAvailable(), 0);
    }
};

QTEST_GUILESS_MAIN(tst_Bus)

#include "tst_bus.moc"
