// A fuzz input: frames as they cross the virtual bus, 16 bytes each. The receiver's filter keeps
// frames of the 11-bit format away, so that these serve as events of the device and the storage.
#include "canbusmanager.h"
#include "eventlog.h"
#include "fakecandevice.h"
#include "faultfs.h"
#include "servicetree.h"
#include "toolframes.h"

#include <QMetaObject>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <utility>
#include <vector>

#include <linux/can.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

// Programs are not started: that would cost more than all the rest, and what a program does is
// not the receiver's. Each start fails instead, which the receiver has to bear.
extern "C" pid_t fork() noexcept
{
    errno = EAGAIN;
    return -1;
}

namespace {

namespace fs = std::filesystem;

/// Identifiers of the 11-bit format. An identifier that is not among them does nothing.
enum Event : canid_t {
    DeviceError = 1,    ///< the device reports the error data[0]
    DeviceLost = 2,     ///< the device becomes unconnected
    DeviceBack = 3,     ///< the device is connected again
    WritesRefused = 4,  ///< the device takes no frames
    WritesAccepted = 5, ///< it takes them again
    BatchBegin = 6,     ///< the frames up to BatchEnd are signalled together
    BatchEnd = 7,
    PlaceMissing = 8,     ///< file or directory number data[0] is removed
    PlaceIsDirectory = 9, ///< a directory that is not empty stands in its place
    PlaceIsFile = 10,     ///< a file stands in its place
    StorageFault = 11,    ///< file operation data[0] from here fails with error data[1], and, if
                          ///< data[2] is odd, the later ones too
    StorageHealthy = 12,
    MenuInstallation = 13,
    SlotCall = 14, ///< calls the slot data[0] with the next frame, past the dispatchers
};

QCanBusFrame toQt(const can_frame &frame)
{
    QCanBusFrame result(frame.can_id & CAN_EFF_MASK,
                        QByteArray(reinterpret_cast<const char *>(frame.data),
                                   std::min<int>(frame.can_dlc, CAN_MAX_DLEN)));
    result.setExtendedFrameFormat((frame.can_id & CAN_EFF_FLAG) != 0);
    if ((frame.can_id & CAN_ERR_FLAG) != 0)
        result.setFrameType(QCanBusFrame::ErrorFrame);
    else if ((frame.can_id & CAN_RTR_FLAG) != 0)
        result.setFrameType(QCanBusFrame::RemoteRequestFrame);
    return result;
}

bool isEvent(const can_frame &frame)
{
    return (frame.can_id & (CAN_EFF_FLAG | CAN_RTR_FLAG | CAN_ERR_FLAG)) == 0;
}

const fs::path root = "/media/service/korvane";
constexpr std::array places = {
    "serialNumber",
    "application/factory/main/systemConfig.json",
    "application/backup/main/systemConfig.json",
    "application/main/systemConfig.json",
    "application/main/nvParameters.conf*",
    "application/main/stats.db",
    "application/factory/menu/menu.tar",
    "application/backup/menu/menu.tar",
    "application/menu/menu.tar",
    "application/menu/menu.db",
    "application/menu/images",
    "pendingUpdates/file.log",
    "application/factory/main",
    "application/backup/main",
    "application/main",
    "application/backup/menu",
    "pendingUpdates",
};
constexpr std::array errors = {ENOSPC, EIO, EROFS, EACCES, ENODEV, EMFILE};

int failedWrites = 0;

void takeMessage(QtMsgType, const QMessageLogContext &, const QString &text)
{
    if (text.startsWith("writeFrame: Failed to write frame:"_L1))
        ++failedWrites;
}

void require(bool holds, const char *promise)
{
    if (holds)
        return;
    std::fprintf(stderr, "Broken: %s\n", promise);
    std::abort();
}

int openDescriptors()
{
    return int(std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

void changePlace(canid_t event, const can_frame &frame)
{
    const fs::path place = root / places[frame.data[0] % places.size()];
    std::error_code ignored;
    fs::remove_all(place, ignored);
    fs::create_directories(place.parent_path(), ignored);
    if (event == PlaceIsDirectory)
        fs::create_directories(place / "below", ignored);
    else if (event == PlaceIsFile)
        std::ofstream(place) << "other content";
}

/// One receiver on one device, and what is known about the frames that it was given.
class Session
{
public:
    Session()
    {
        require(m_manager.init(), "init() succeeds");
        m_device.reset(FakeCanDevice::latest);
    }

    void run(const std::vector<can_frame> &sequence)
    {
        for (auto frame = sequence.cbegin(); frame != sequence.cend(); ++frame) {
            if (!isEvent(*frame))
                receive(toQt(*frame));
            else if (frame->can_id == SlotCall && frame + 1 != sequence.cend())
                callSlot(frame->data[0], toQt(*(frame + 1)));
            else
                happen(*frame);
            checkRecord();
        }
    }

    /// What holds after anything that may have happened.
    void finish(int descriptorsBefore)
    {
        FaultFs::control().at = 0;
        FakeCanDevice::behaviour.writeError.clear();
        m_device->reportState(QCanBusDevice::ConnectedState);
        m_batching = false;
        receive(ToolFrames::startConfiguration(2));
        require(!m_answers.isEmpty() && m_answers.constLast().frameId() == 0x0F585000
                    && m_answers.constLast().payload() == QByteArrayLiteral("\x5A\xA5"),
                "a handshake is answered");
        require(m_answers.size() + failedWrites == m_commands, "every command has one answer");
        require(openDescriptors() <= descriptorsBefore + 1, "at most one file is open");
        require(FaultFs::control().strayed[0] == '\0', FaultFs::control().strayed);
    }

    void takeAnswer(const QCanBusFrame &frame)
    {
        m_answers.append(frame);
        // Nodes 26 to 24, P3 response or P6.
        const quint32 id = frame.frameId();
        require((id & 0x1FFFC000) == 0x0F584000 || (id & 0x1FFF0C00) == 0x1B580000,
                "an answer has its identifier");
        require(frame.hasExtendedFrameFormat() && frame.payload().size() <= 8,
                "an answer is a classic frame with 29 bits of identifier");
    }

private:
    void receive(const QCanBusFrame &frame)
    {
        m_batch.append(frame);
        if (!m_batching)
            deliver();
    }

    void deliver()
    {
        for (const QCanBusFrame &frame : std::as_const(m_batch))
            expect(frame);
        m_device->deliver(std::exchange(m_batch, {}));
    }

    /// Whether a frame asks for an answer, and what a Record Start announces.
    void expect(const QCanBusFrame &frame)
    {
        const quint32 id = frame.frameId();
        const quint32 destination = id >> 16 & 31;
        if ((id >> 21 & 31) != 24 || (destination != 26 && destination != 14))
            return;
        if (id >> 26 == 3 && (id & 0x4000) == 0 && (id >> 6 & 15) == 11 && (id & 63) <= 4)
            ++m_commands;
        if (id >> 26 != 6)
            return;
        const quint32 type = id >> 12 & 15;
        if (type == 0 || type == 1 || type == 3 || type == 4)
            ++m_commands;
        if (type == 2 && frame.payload().size() == 5)
            m_announced = std::max(m_announced, qsizetype(quint8(frame.payload().at(0))) * 8);
    }

    void checkRecord()
    {
        const KV_MultiPacket_Transfer &session = m_manager.multiPacketTransfer;
        require(session.blockBuffer.size() == qsizetype(session.framesToFollow) * 8
                    && session.blockBuffer.size() <= m_announced,
                "the record is as large as announced");
        require(session.blockDataLength <= session.blockBuffer.size(), "a record does not grow");
        require(session.expectedFrameNumber <= 64, "a record has at most 64 frames");
    }

    void happen(const can_frame &event)
    {
        switch (event.can_id) {
        case DeviceError:
            m_device->reportError(u"fuzz"_s, QCanBusDevice::CanBusError(event.data[0] % 7));
            break;
        case DeviceLost:
            m_device->reportState(QCanBusDevice::UnconnectedState);
            break;
        case DeviceBack:
            m_device->reportState(QCanBusDevice::ConnectedState);
            break;
        case WritesRefused:
            FakeCanDevice::behaviour.writeError = u"fuzz"_s;
            break;
        case WritesAccepted:
            FakeCanDevice::behaviour.writeError.clear();
            break;
        case BatchBegin:
            m_batching = true;
            break;
        case BatchEnd:
            m_batching = false;
            deliver();
            break;
        case PlaceMissing:
        case PlaceIsDirectory:
        case PlaceIsFile: {
            FaultFs::control().at = 0;
            FaultFs::control().watch = false;
            changePlace(event.can_id, event);
            FaultFs::control().watch = true;
            break;
        }
        case StorageFault: {
            FaultFs::Control &control = FaultFs::control();
            control.operations = 0;
            control.action = event.data[1] == 255 ? FaultFs::Action::Short : FaultFs::Action::Error;
            control.error = errors[event.data[1] % errors.size()];
            control.lasting = (event.data[2] & 1) != 0;
            control.at = event.data[0];
            break;
        }
        case StorageHealthy:
            FaultFs::control().at = 0;
            break;
        case MenuInstallation:
            if (!std::exchange(m_installedMenu, true))
                m_manager.processReceivedMenuFile();
            break;
        default:
            break;
        }
    }

    /// Slots that nothing routes a frame to have to bear any frame too.
    void callSlot(unsigned number, const QCanBusFrame &frame)
    {
        static constexpr std::array names = {"processP3CanResponse", "processP3CanEvent",
                                             "processP5CanMessage"};
        QMetaObject::invokeMethod(&m_manager, names[number % names.size()], Qt::DirectConnection,
                                  Q_ARG(QCanBusFrame, frame));
    }

    CanBusManager m_manager;
    std::unique_ptr<FakeCanDevice> m_device;
    QList<QCanBusFrame> m_batch;
    bool m_batching = false;
    bool m_installedMenu = false;
    qsizetype m_announced = 0;
    qsizetype m_commands = 0;
    QList<QCanBusFrame> m_answers;
};

} // namespace

/// Runs one input; aborts if the receiver breaks a promise. Always 0, as libFuzzer asks for.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    [[maybe_unused]] static const bool prepared = [] {
        if (const QString reason = ServiceTree::unsafe(); !reason.isEmpty())
            qFatal("%s", qUtf8Printable(reason));
        qInstallMessageHandler(takeMessage);
        return true;
    }();

    FaultFs::Control &control = FaultFs::control();
    control.watch = false;
    control.at = 0;
    ServiceTree::reset();
    fs::remove_all("Unknown");
    failedWrites = 0;
    FakeCanDevice::behaviour = {};

    const int descriptors = openDescriptors();
    {
        Session session;
        FakeCanDevice::behaviour.onWrite = [&session](const QCanBusFrame &frame) {
            session.takeAnswer(frame);
        };
        control.strayed[0] = '\0';
        control.watch = true;
        // Bytes that do not make a whole frame are left out.
        std::vector<can_frame> sequence(size / sizeof(can_frame));
        if (!sequence.empty())
            std::memcpy(sequence.data(), data, sequence.size() * sizeof(can_frame));
        session.run(sequence);
        session.finish(descriptors);
        control.watch = false;
    }
    require(openDescriptors() == descriptors, "the file is closed with the receiver");
    EventLog::take();
    FakeCanDevice::requests.clear();
    return 0;
}
