#pragma once

#include "canbusmanager.h"
#include "eventlog.h"
#include "fakecandevice.h"
#include "servicetree.h"

#include <QCanBusFrame>
#include <QObject>

#include <memory>

/// Gives each test a receiver on a fake CAN device, an empty service tree and an empty event log,
/// and plays the transcripts of the text file named after the executable.
class ReceiverTest : public QObject
{
    Q_OBJECT

public:
    /// fsync() in this test function: unseen, an event, or a failure.
    enum FsyncCalls { Unseen, Logged, Failing };
    static inline FsyncCalls fsyncCalls = Unseen;

protected:
    std::unique_ptr<CanBusManager> manager;
    std::unique_ptr<FakeCanDevice> device;

    /// What play() shows of the event log: only what reaches the bus, the display, the files and
    /// an installed receiver's log; the handlers' debug messages too; or every line.
    enum Detail { Outside, Handlers, Everything };

    /// Plays \a transcript, line by line, and compares what happens with it. These lines act:
    ///
    ///     receive FRAME...        the device delivers the frames in one signal
    ///     given FRAME...          the same, but what comes of it is not shown
    ///     call SLOT FRAME         calls a slot that takes a frame, past the dispatch
    ///     call METHOD [PATH]      calls one of the methods that install files
    ///     send SLOT NUMBER... #PAYLOAD    calls one of the senders
    ///     shell SCRIPT            runs in the service tree's root; its output comes with the events
    ///     tools                   waits for both clock tools; their calls come, sorted
    ///     read-only PATH          makes a directory there read-only until the test has ended
    ///     program NAME SCRIPT     puts a shell script in the place of a program, likewise
    ///     refuse REASON           the device takes no frames from now on
    ///     restart                 begins again with a new receiver and empty directories
    ///
    /// These say what is there, and all other lines what happens after the last that acts:
    ///
    ///     file PATH "content"     a file below the service tree's root, or (no file)
    ///     state FIELD VALUE, FIELD VALUE...      values that the receiver keeps, as state() has them
    ///     changed FIELD VALUE, FIELD VALUE...    all that the last line that acts has changed of
    ///                                            them, or "nothing"
    ///
    /// Frames are written as EventLog::frame() reads them. A line that begins with # is a comment.
    /// Lines "each VALUE | VALUE; VALUE | VALUE" let the others be played once for each group of
    /// values, which stand for %1 and %2.
    void play(const QString &transcript) { play(Outside, transcript); }
    void play(Detail detail, const QString &transcript);

    /// What initTestCase(), init() and cleanup() do, for tests with a part of their own in them.
    void checkSandbox();
    void startReceiver();
    void stopReceiver();
    /// Lets the receiver get \a frames, separated by blanks, from its device, in one signal.
    void receive(const QString &frames);
    /// Calls the slot \a slot, which takes a frame, past the dispatch.
    void call(const QString &slot, const QString &frame);
    /// What reached the outside since the test's begin or the last call.
    QStringList events(Detail detail = Everything);
    /// Puts a shell script in the place of \a program on PATH until the test function has ended.
    static void replaceProgram(const QString &program, const QByteArray &script);
    /// Every value that the receiver keeps: "FIELD VALUE".
    QStringList state() const;

    KV_MultiPacket_Transfer &session() { return manager->multiPacketTransfer; }

private:
    void playOnce(Detail detail, const QStringList &transcript);
    /// Whether \a line acts; if so, it has.
    bool acts(const QString &line);
    void send(QStringList words);
    static void runShell(const QString &script);
    QStringList valuesOf(const QStringList &fields) const;

    QByteArray m_path;
    std::unique_ptr<ServiceTree::ReadOnly> m_readOnly;

private slots:
    void initTestCase() { checkSandbox(); }
    void init() { startReceiver(); }
    void cleanup() { stopReceiver(); }

    /// The file's transcripts. Each begins with its name, to which ": handlers" or ": everything"
    /// adds the detail; its lines are indented.
    void behaviour_data();
    void behaviour();
};
